#include "accel/accel.h"
#include "base/release.h"
#include "lights/lights.h"
#include "session/console.h"
#include "session/guard.h"
#include "session/sampling.h"
#include "session/settings.h"
#include "shading/shading.h"
#include "transport/branches.h"
#include "transport/camera_connection.h"
#include "transport/density.h"
#include "transport/photon_store.h"
#include "transport/spawn.h"
#include "transport/transport.h"

#include <omp.h>

#include <algorithm>

// Photons do not choose: at each hit every element of the surface sends its own child on, until the throughput or the
// depth ends it. What they bring is kept by caustics (the tree), by diffuse hits (density cells) and for the camera.
namespace hv {

namespace {

// ---- Tracing ----

/// Whether the light of a photon acts on what it has hit first. Later hits are free.
bool ActsOn(const RayRecord& photon)
{
    return photon.depth > 0 || !photon.photon_links || IsLinked(*photon.photon_links, photon.hit_shader);
}

/// Whether a photon came over mirrors and lenses alone, from a light that scattered rays do not find by themselves.
bool IsCaustic(const RayRecord& photon)
{
    return photon.stores_caustics && ScatterBounces(photon) == 0 && photon.specular_bounces > 0;
}

void KeepCaustic(const RayRecord& photon, const SurfacePoint& point)
{
    const Color power = photon.power * photon.throughput;
    if (!IsFinite(point.position) || !IsFinite(Vector{power.r, power.g, power.b})) return;
    StorePhoton(photon.thread,
                {point.position, power, EncodeDirection(point.outgoing), EncodeDirection(point.geometric_normal)});
}

/// The functions that hold a child record are kept out of line, as those of camera paths are.
[[gnu::noinline]] void SendOn(const RayRecord& photon, const SurfacePoint& point, ElementCode element, Vector direction,
                              Color throughput, float refraction)
{
    RayRecord child  = SpawnChild(photon, point, element, direction, throughput);
    child.refraction = refraction;
    TracePhoton(child);
}

/// A diffuse element: above the surface (side 1) or through it (side -1).
void AddDiffuse(const RayRecord& photon, const SurfacePoint& point, Element slot, ElementCode element, float side)
{
    Color color;
    ReadSlot(point.layer->Slot(slot), color, point);
    color *= point.transmittance;
    const Color throughput = color * photon.throughput;
    if (!IsPresent(throughput)) return;
    if (IsCaustic(photon)) KeepCaustic(photon, point);
    if (!Settings.FinalGathering) return;

    DepositDensity(photon, photon.power * throughput);
    const NumberPair u         = PairOf(photon, photon.dimension, photon.sample_index);
    const Vector     direction = SampleCosine(point, u.a, u.b, side);
    if (side * Dot(direction, point.geometric_normal) > 0.0f)
        SendOn(photon, point, element, direction, throughput, photon.refraction);
}

void AddLambertian(const RayRecord& photon, const SurfacePoint& point)
{
    AddDiffuse(photon, point, Element::Lambertian, ElementCode::Lambertian, 1.0f);
}

void AddTransmissive(const RayRecord& photon, const SurfacePoint& point)
{
    AddDiffuse(photon, point, Element::Transmissive, ElementCode::Transmissive, -1.0f);
}

/// What mirrors and lenses do with a photon at a facet: `normal` is that of the surface, or a half vector of its rough
/// one.
struct Facet {
    Vector      normal;
    float       cosine;  ///< of the photon's direction against the normal
    ElementCode reflection, refraction;
    bool        refracts;  ///< if the facet does not reflect all
};

void AddFacet(const RayRecord& photon, const SurfacePoint& point, const Facet& facet, Color throughput)
{
    Vector direction;
    bool   total = false;
    if (facet.refracts) {
        total = Refract(direction, photon.direction, facet.normal, point.eta, facet.cosine);
        if (!total && Dot(direction, point.geometric_normal) < 0.0f)
            SendOn(photon, point, facet.refraction, direction, throughput * point.transmittance,
                   RefractionBehind(photon, point.eta));
    }
    direction = photon.direction + 2.0f * facet.cosine * facet.normal;
    if (Dot(direction, point.geometric_normal) > 0.0f)
        SendOn(photon, point, facet.reflection, direction, total ? throughput : throughput * point.reflectance,
               photon.refraction);
}

[[gnu::noinline]] void ConnectGlossy(const RayRecord& photon, const SurfacePoint& point, Color color)
{
    const Vector towards = Normalized(ActiveCamera()->poses[0].position - point.position);
    const float  lobe    = WardLobe(point.outgoing, towards, point) * 4.0f * kPi;
    // Meant: without the reflectance.
    ConnectToCamera(photon, point, color * photon.power * lobe);
}

void AddGlossy(const RayRecord& photon, const SurfacePoint& point)
{
    Color color;
    ReadSlot(point.layer->Slot(Element::Glossy), color, point);
    const Color throughput = color * photon.throughput;
    if (!IsPresent(throughput)) return;
    if (CollectsLightPaths()) ConnectGlossy(photon, point, color);

    const NumberPair u    = PairOf(photon, photon.dimension, photon.sample_index);
    const Vector     half = SampleWardHalf(point, u.a, u.b);
    AddFacet(photon, point,
             {half, -Dot(photon.direction, half), ElementCode::GlossyReflection, ElementCode::GlossyRefraction,
              point.material == Material::Dielectric},
             throughput);
}

void AddSpecular(const RayRecord& photon, const SurfacePoint& point)
{
    Color color;
    ReadSlot(point.layer->Slot(Element::Specular), color, point);
    const Color throughput = color * photon.throughput;
    if (!IsPresent(throughput)) return;
    AddFacet(photon, point,
             {point.normal, point.cos_outgoing, ElementCode::SpecularReflection, ElementCode::SpecularRefraction,
              point.material != Material::Conductor},
             throughput);
}

// ---- Casting ----

/// Items of the random numbers of photons begin here; no pixel has such a number.
constexpr std::uint64_t kPhotonItem = std::uint64_t{1} << 60;

/// Source of photons: makes photon `index`, of which it has `count`.
template <class Generate>
struct PhotonSource {
    std::int64_t count;
    Generate     generate;
};
template <class Generate>
PhotonSource(std::int64_t, Generate) -> PhotonSource<Generate>;

auto SourceOf(const Light& light)
{
    return PhotonSource{light.photon,
                        [&light](RayRecord& photon, std::uint64_t index) { light.GeneratePhoton(photon, index); }};
}

auto SkySource()
{
    return PhotonSource{std::int64_t{SkyLight.photon},
                        [](RayRecord& photon, std::uint64_t index) { GenerateSkyPhoton(photon, index); }};
}

void GenerateEmitterPhoton(RayRecord& photon, std::uint64_t index)
{
    SurfacePoint point;
    if (!StartEmitterPhoton(photon, index, static_cast<std::uint64_t>(GeometryLight.photon), point)) return;
    photon.direction =
        SampleCosine(point, RadicalInverse(2, photon.sample_index), RadicalInverse(3, photon.sample_index), 1.0f);
}

auto EmitterSource()
{
    const std::int64_t count = GeometryLight.area > 0.0f ? GeometryLight.photon : 0;
    return PhotonSource{count, [](RayRecord& photon, std::uint64_t index) { GenerateEmitterPhoton(photon, index); }};
}

/// Casts done since the photons were cleared; photons are kept in the order of cast and number.
std::uint64_t CastCount = 0;

/// Whether anything can come of a photon.
bool IsOfUse(const RayRecord& photon)
{
    return Settings.FinalGathering || photon.stores_caustics || CollectsLightPaths();
}

template <class Generate>
void CastPhoton(const PhotonSource<Generate>& source, std::uint64_t cast, std::uint64_t number, int thread)
{
    RayRecord photon;
    photon.thread = static_cast<std::uint8_t>(thread);
    BeginRandomStream(kPhotonItem + (cast << 40) + number, 0);
    source.generate(photon, number);
    if (MaxChannel(photon.power) > 0.0f && IsOfUse(photon)) TracePhoton(photon);
}

/// Says how far a cast has come. The line overwrites itself; threads that are late say nothing.
class CastProgress {
public:
    explicit CastProgress(std::int64_t count) : count_(count), step_(std::max<std::int64_t>(1, count / 100)) {}

    void Done(std::int64_t photon)
    {
        if (photon % step_ != 0) return;
#pragma omp critical(photon_progress)
        if (photon > told_) {
            told_ = photon;
            Guarded([&] { ReportProgress("photon cast ", Percent(photon), "%", false); });
        }
    }

private:
    std::int64_t Percent(std::int64_t photon) const
    {
        return static_cast<std::int64_t>(static_cast<double>(photon) / static_cast<double>(count_) * 100.0);
    }

    std::int64_t count_, step_, told_ = -1;
};

/// Casts all photons of a source. Batches go out one at a time: the cost of photons is very uneven.
template <class Generate>
void Cast(const PhotonSource<Generate>& source, int frame)
{
    const std::int64_t  count = source.count, batches = count / kPhotonBatch + (count % kPhotonBatch != 0 ? 1 : 0);
    const std::uint64_t first = static_cast<std::uint64_t>(frame) * static_cast<std::uint64_t>(count);
    const std::uint64_t cast  = CastCount++;
    CastProgress        progress(count);
    TakeSum(PrimaryRayCounters);
    const std::int64_t start = Ticks();
#pragma omp parallel for schedule(monotonic : dynamic, 1) num_threads(TeamSize())
    for (std::int64_t batch = 0; batch < batches; ++batch) {
        const int thread = omp_get_thread_num();
        BeginPhotonBatch(thread, (cast << 40) + static_cast<std::uint64_t>(batch));
        const std::int64_t begin = batch * kPhotonBatch, end = begin + std::min(count - begin, kPhotonBatch);
        for (std::int64_t i = begin; i < end; ++i) {
            CastPhoton(source, cast, first + static_cast<std::uint64_t>(i), thread);
            progress.Done(i);
        }
    }
    const auto microseconds = static_cast<float>(std::max<std::int64_t>(1, (Ticks() - start) / 10));
    ReportValue("photon cast ", static_cast<float>(TakeSum(PrimaryRayCounters)) / microseconds, "M rays/second");
}

template <class LightType>
void CastFrom(const std::vector<LightType>& lights, int frame)
{
    for (const LightType& light : lights)
        if (light.photon > 0) Cast(SourceOf(light), frame);
}

/// The smaller of two powers, of which one not above 0 does not count.
double Weaker(double power, double other) { return other > 0.0 && !(other >= power && power > 0.0) ? other : power; }

/// The smallest power that photons of a source carry, as far as some of them tell; 0 where they carry none.
template <class Generate>
double WeakestOf(const PhotonSource<Generate>& source)
{
    constexpr std::int64_t kProbes = 256;
    const std::int64_t     step    = std::max<std::int64_t>(1, source.count / kProbes);
    double                 power   = 0.0;
    for (std::int64_t i = 0; i < source.count && i < kProbes * step; i += step) {
        RayRecord photon;
        source.generate(photon, static_cast<std::uint64_t>(i));
        power = Weaker(power, MaxChannel(photon.power));
    }
    return power;
}

/// Power of a weak photon of the scene, 0 when there is none. Weak ones set the precision of sums that do not depend on
/// their order, as strong ones find room above it. A light's cone may be so narrow that few photons carry anything.
double WeakPower()
{
    double     power  = Weaker(WeakestOf(SkySource()), WeakestOf(EmitterSource()));
    const auto add_of = [&power](const Light& light) {
        if (light.photon > 0) power = Weaker(power, MaxChannel(light.photon_power) / static_cast<double>(light.photon));
    };
    for (const PointLight& light : PointLights) add_of(light);
    for (const ParallelLight& light : ParallelLights) add_of(light);
    return power;
}

}  // namespace

void TracePhoton(RayRecord& photon)
{
    if (photon.depth > Settings.PhotonDepth || !IsPresent(photon.throughput)) return;
    if (!TraceClosest(photon)) return;
    SurfacePoint point;
    EvaluateHit(photon, point);
    if (!point.layer || !ActsOn(photon)) return;
    AddLambertian(photon, point);
    AddTransmissive(photon, point);
    AddGlossy(photon, point);
    AddSpecular(photon, point);
}

void CastPhotons()
{
    ReleasePhotons();
    Release(Photons);  // or the storage of the last cast would stand beside what this one collects
    ClearPhotonStore();
    ClearDensity();
    ClearConnections();
    CastCount = 0;
    if (HasFixedSeed()) {
        const double power = WeakPower();
        StartOrderFreeDeposits(power);
        StartOrderFreeConnections(power);
    }
    CastPhotonsFromParallelLights(0);
    CastPhotonsFromPointLights(0);
    CastPhotonsFromGeometryLight(0);
    CastPhotonsFromSky(0);
    FinishOrderFreeDeposits();
    FinishOrderFreeConnections();
    CollectPhotons();
}

void CastPhotonsFromParallelLights(int frame) { CastFrom(ParallelLights, frame); }
void CastPhotonsFromPointLights(int frame) { CastFrom(PointLights, frame); }

void CastPhotonsFromGeometryLight(int frame)
{
    if (GeometryLight.photon > 0 && GeometryLight.area > 0.0f) Cast(EmitterSource(), frame);
}

void CastPhotonsFromSky(int frame)
{
    if (SkyLight.photon > 0) Cast(SkySource(), frame);
}

}  // namespace hv
