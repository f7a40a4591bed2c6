#pragma once

#include "base/vector.h"
#include "hv.h"
#include "output/image.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hv {

inline constexpr int kElementCount  = 16;
inline constexpr int kMaxSideLayers = 16;  ///< layers of one side beyond these take no part

/// One quantity that may be textured: a slot of a layer, the clip map, or a displacement entry.
struct ShaderElement {
    float        gamma            = 1.0f;  ///< texels are raised to this power
    float        color_matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  ///< row-major
    float        uv_matrix[9]     = {1, 0, 0, 0, 1, 0, 0, 0, 1};                       ///< row-major
    std::uint8_t wrap_u = 0, wrap_v = 0;                                               ///< 0 repeat, 1 clamp
    std::uint8_t sampler                  = 2;  ///< 0 nearest, 1 stochastic, 2 bilinear
    bool         color_matrix_is_identity = true, uv_matrix_is_identity = true;  ///< cleared by scene files only
    std::string  image;                                                          ///< path as written
    std::string  fresnel_image;                                                  ///< path as written
    std::string  uv_set;     ///< name of the vertex data with the coordinates; stored, read by nothing
    Vector       direction;  ///< displacement: zero means along the tangent frame
    Color        color;      ///< multiplies the texture; of a displacement entry the vector
    Color        fresnel;    ///< stored, read by nothing
    std::int32_t image_index = -1, fresnel_image_index = -1;  ///< in the image store, set at preparation
    std::int32_t level       = 1;                             ///< displacement: tessellation count
    const float* byte_powers = nullptr;  ///< PowersOfBytes(gamma); set at preparation when the picture holds bytes
};

/// Parameters of hair scattering with their tables.
struct HairParameters {                                              // the defaults last until PrepareHair
    float beta[3]       = {0.174532925f, 0.34906585f, 0.52359878f};  ///< lobe widths, radians
    float ior           = 1.55f;
    float absorption[3] = {0.01f, 0.02f, 0.01f};
    Image lobe_density, lobe_r, lobe_tt, lobe_trt;  ///< 128 x 128: rows half angle, columns azimuth
    float variance[3] = {0, 0, 0};
    float norm[3]     = {0, 0, 0};
    float r0          = 0.0f;
    bool  all_lobes   = false;
};

/// One layer of a surface.
struct SurfaceShader {
    SurfaceShader();  ///< Ior, Normal and slot 13 white, the other slots black

    const ShaderElement& Slot(Element element) const { return slots[static_cast<int>(element)]; }
    ShaderElement&       Slot(Element element) { return slots[static_cast<int>(element)]; }

    HairParameters hair;
    ShaderElement  slots[kElementCount];
    std::uint32_t  reserved[2]   = {0, 0};
    Sideness       sideness      = Sideness::Both;
    Material       material      = Material::Conductor;
    bool           virtual_light = false;
    bool           window        = false;  ///< emits the sky behind it

    // Derived by PrepareShader from the untextured colours.
    bool has_image = false, has_normal_map = false, is_glossy_rough = false, is_anisotropic = false;
    bool needs_tangent_frame = false, frame_is_rotated = false, has_diffuse = false, has_reflection = false;
    bool has_diffusion = false, is_plain_diffuse = false;
    bool has_lambertian = false, has_transmissive = false, has_glossy = false, has_specular = false;
};

/// What a shader does to geometry.
struct GeometryShader {
    std::vector<ShaderElement> radius, length, vector, height;  ///< displacement lists
    ShaderElement              clip;                            ///< colour white
    float                      reserved     = 0.0f;
    float                      smooth_angle = -1.0f;     ///< degrees; below 0 keeps given normals
    float                      round_corner = 1.0f;      ///< stored, read by nothing; 0 to 1 after preparation
    float                      reduction    = kFarAway;  ///< stored, read by nothing; 0 to 1 after preparation
    Visibility                 visibility   = Visibility::VisibleToAll;
    bool                       flip_face = false, assign_hair_texture_uv = false, trivial_connection = false;
    bool                       has_clip_image = false;  ///< derived

    GeometryShader() { clip.color = kWhite; }
};

/// The inside of a body, or of the whole scene.
struct VolumeShader {
    Color         albedo             = kBlack;
    Color         transmittance      = kWhite;  ///< colour left after one metre
    float         average_cosine     = 0.0f;
    std::uint32_t medium_id          = 0;
    float         hair_absorption[3] = {0, 0, 0};  ///< of fibres, see hvxSetHairAbsorption
};

struct Shader {
    bool                       prepared = false;
    std::string                name     = "undefined";
    HairParameters             hair;
    bool                       is_hair = false;  ///< a part with cylinders uses it
    GeometryShader             geometry_shader;
    VolumeShader               volume_shader;
    std::uint32_t              face_layer_count = 0, back_layer_count = 0;
    std::uint8_t               face_layers[kMaxSideLayers] = {}, back_layers[kMaxSideLayers] = {};  ///< into `layers`
    std::vector<SurfaceShader> layers;
    float                      opacity = 1.0f;  ///< stored, read by nothing

    // Derived: any layer of the side has it.
    bool face_virtual_light = false, back_virtual_light = false, face_emissive = false, back_emissive = false;
    bool face_lambertian = false, back_lambertian = false, face_transmissive = false, back_transmissive = false;
};

/// Filled by hvAddShader, scene files and start-up (index 0, "undefined"), emptied by hvFinalizeShaders and hvFinalize.
/// Frozen from hvInitializeShaders on.
extern std::vector<Shader> Shaders;

/// One byte a shader for the walks, made by PrepareShaders: what a ray must know of a surface without opening it.
namespace shader_traits {
inline constexpr std::uint8_t kVisibilityMask = 3;  ///< Visibility
inline constexpr std::uint8_t kFrontOpaque    = 4;  ///< the front lets no light through, whatever the point
inline constexpr std::uint8_t kBackOpaque     = 8;
}  // namespace shader_traits
extern std::vector<std::uint8_t> ShaderTraits;

}  // namespace hv
