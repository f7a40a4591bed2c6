#include "geometry/assembly.h"

#include "accel/accel.h"
#include "base/release.h"
#include "output/camera.h"
#include "session/console.h"
#include "shading/hair.h"
#include "shading/shading.h"

namespace hv {

namespace {

/// The order in which PrepareScene prepared the objects: targets first. MoveObjects follows it.
std::vector<std::uint32_t> UpdateOrder;

/// Frames over which a motion is spread.
int FrameCount()
{
    const Camera* camera = ActiveCamera();
    return camera != nullptr ? std::max(camera->sample, 1) : 1;
}

void SetSceneValues()
{
    const bool has_root = RootObject < Objects.size();
    SceneBox            = has_root ? Objects[RootObject].box : Box{{0, 0, 0}, {0, 0, 0}};
    if (!has_root) {
        SceneCenter = {};
        SceneRadius = 0.0f;
    } else if (IsEmpty(SceneBox)) {
        SceneCenter = {};
        SceneRadius = 1e-5f;
    } else {
        SceneCenter = 0.5f * (SceneBox.min + SceneBox.max);
        SceneRadius = Length(0.5f * (SceneBox.max - SceneBox.min));
    }
}

/// A shader that replaces that of hair, at whatever depth below it, is a hair shader, too.
void MarkHairOverrides()
{
    std::vector<bool> has_hair(Objects.size(), false);
    for (const std::uint32_t index : UpdateOrder) {
        for (const Part& part : Objects[index].parts) has_hair[index] = has_hair[index] || !part.cylinders.empty();
        for (const Instance& instance : Objects[index].instances) {
            if (instance.object >= Objects.size() || !has_hair[instance.object]) continue;
            has_hair[index] = true;
            if (instance.shader < Shaders.size()) Shaders[instance.shader].is_hair = true;
        }
    }
}

/// References to primitives number the parts of an object in 16 bits.
void TellOfTooManyParts(const Object& object)
{
    constexpr std::size_t kMaxParts = 65536;
    if (object.parts.size() <= kMaxParts) return;
    PrintError("object - " + object.name + " has more than 65536 parts, the rest is left out");
    PrintRule();
}

/// Prepares the instances of an object, telling of those whose matrix has no inverse.
void PrepareInstances(Object& object)
{
    for (Instance& instance : object.instances) {
        const bool has_target = instance.object < Objects.size() && !IsEmpty(Objects[instance.object].box);
        if (RefreshInstance(instance) || !has_target) continue;
        PrintError("object - an instance in " + object.name + " has a singular matrix and is left out");
        PrintRule();
    }
}

}  // namespace

void PrepareObject(Object& object)
{
    object.hasMotion = false;
    if (object.shaderID >= Shaders.size()) object.shaderID = 0;
    for (Part& part : object.parts) {
        if (part.shaderID == 0 && part.shaderName == "undefined") part.shaderID = object.shaderID;
        PreparePart(part);
        object.hasMotion = object.hasMotion || part.hasMotion;
    }
    TellOfTooManyParts(object);
    PrepareInstances(object);
    RefreshBounds(object);
    Build(object);
    Update(object, true, FrameCount());
    SortWideLanes(object);
    AssignStrandUVs(object);
    if (!object.hasMotion) {
        Release(object.binaryNodes);
        Release(object.binaryRefs);
    }
    BuildEmitterLists(object);
    object.isPrepared = true;
    ReportObject(object);
}

void PrepareScene(void (*density_setup)(Part& part))
{
    UpdateOrder.clear();
    RootObject = 0;
    if (Objects.empty()) {
        SetSceneValues();
        return;
    }
    RefreshShaderTraits();
    ResolveInstanceNames();
    const bool has_root = FindRoot();
    CutCycles();
    AssignDepths();
    UpdateOrder = PreparationOrder();
    for (Object& object : Objects) object.isPrepared = false;
    for (const std::uint32_t index : UpdateOrder) PrepareObject(Objects[index]);
    MarkHairOverrides();
    SetSceneValues();
    if (!has_root) {
        PrintError("object - there is no root object");
        PrintRule();
    }
    if (density_setup != nullptr)
        for (Part& part : Objects[RootObject].parts) density_setup(part);
    ReportBox("scene ", SceneBox);
    for (Shader& shader : Shaders) PrepareHair(shader);
}

void MoveObjects()
{
    const int frame_count = FrameCount();
    for (const std::uint32_t index : UpdateOrder)
        if (index < Objects.size() && Objects[index].hasMotion) Update(Objects[index], false, frame_count);
    SetSceneValues();
}

void DestroyObjects()
{
    Release(Objects);
    UpdateOrder.clear();
    RootObject = 0;
    SetSceneValues();
}

}  // namespace hv
