/** hv.h: the public interface of libhv, an offline physically based renderer. C99 and C++.
 *
 *  One process holds one session. A host either renders a scene folder with one call, hvGo, or drives the session
 *  itself, always in this order:
 *      hvStartup      fills the sampling tables, sets defaults, makes shader 0, "undefined"
 *      hvAdd..., hvSet...    describe cameras, shaders, objects and lights (handles are ints, counted from 0)
 *      hvInitialize   prepares everything and prints a report on standard output
 *      hvRender       renders all frames of camera 0 and writes its pictures (or hvRenderPixels, frame by frame)
 *      hvFinalize     writes the pictures once more and releases the scene
 *      hvShutdown     ends the library; hvStartup may follow
 *
 *  All calls belong to one thread, one at a time. Strings and arrays are copied during the call. There are no error
 *  codes: what goes wrong prints one line on standard output and work goes on. A handle that names nothing, a null
 *  pointer or a count that does not fit is ignored; an hvAdd... function then returns -1. Lengths are metres, angles
 *  degrees, colours linear RGB. Additions to this interface live in hvx.h.
 */
#ifndef HV_H
#define HV_H

#ifndef __cplusplus
#include <stdbool.h>
#endif

#if defined(__GNUC__)
#define HV_API __attribute__((visibility("default")))
#else
#define HV_API
#endif

/* ---- Enumerations. In C++ they are scoped (Material::Dielectric), in C the enumerators carry a prefix. ---- */

#ifdef __cplusplus

/** Film geometry of a camera. */
enum class Projection : int { Perspective = 0, Spherical = 1 };

/** Stored with the camera; the field of view is always read in degrees. */
enum class AngleMeasure : int { Degrees = 0, Radians = 1 };

/** What an AOV collects. A camera AOV holds one value, a light's AOV a set of Lambertian, Transmissive and Glossy. */
enum class Channel : int {
    Beauty            = 1,
    LightPath         = 2,
    Lambertian        = 4,
    LambertianColor   = 8,
    Transmissive      = 16,
    TransmissiveColor = 32,
    Glossy            = 64,
    GlossyColor       = 128,
    Specular          = 256,
    SpecularColor     = 512,
    Emissive          = 1024,
    Normal            = 2048,
    Tangent           = 4096,
    Position          = 8192,
    Depth             = 16384,
    UserData          = 32768
};

/** The sixteen slots of a surface layer. */
enum class Element : int {
    Lambertian         = 0,
    Transmissive       = 1,
    Glossy             = 2,
    Specular           = 3,
    Emissive           = 4,
    Diffusion          = 5,
    ShadowTransparency = 6,
    Normal             = 7,
    Weight             = 8,
    Anisotropy         = 9,
    Roughness          = 10,
    Angle              = 11,
    Ior                = 12,
    Reserved13         = 13,
    Thickness          = 14,
    Reserved15         = 15
};

/** How a layer splits light between reflection and transmission. */
enum class Material : int { Conductor = 0, Dielectric = 1, ThinDielectric = 2 };

/** The sides of a face that a layer covers. */
enum class Sideness : int { Face = 0, Back = 1, Both = 2 };

/** Which primary rays see a surface: bit 0 rays of the camera, bit 1 shadow rays and the first segments of photons. */
enum class Visibility : int { Invisible = 0, CameraPrimary = 1, LightPrimary = 2, VisibleToAll = 3 };

extern "C" {
#else

enum Projection { HV_PROJECTION_PERSPECTIVE = 0, HV_PROJECTION_SPHERICAL = 1 };

enum AngleMeasure { HV_ANGLE_MEASURE_DEGREES = 0, HV_ANGLE_MEASURE_RADIANS = 1 };

enum Channel {
    HV_CHANNEL_BEAUTY             = 1,
    HV_CHANNEL_LIGHT_PATH         = 2,
    HV_CHANNEL_LAMBERTIAN         = 4,
    HV_CHANNEL_LAMBERTIAN_COLOR   = 8,
    HV_CHANNEL_TRANSMISSIVE       = 16,
    HV_CHANNEL_TRANSMISSIVE_COLOR = 32,
    HV_CHANNEL_GLOSSY             = 64,
    HV_CHANNEL_GLOSSY_COLOR       = 128,
    HV_CHANNEL_SPECULAR           = 256,
    HV_CHANNEL_SPECULAR_COLOR     = 512,
    HV_CHANNEL_EMISSIVE           = 1024,
    HV_CHANNEL_NORMAL             = 2048,
    HV_CHANNEL_TANGENT            = 4096,
    HV_CHANNEL_POSITION           = 8192,
    HV_CHANNEL_DEPTH              = 16384,
    HV_CHANNEL_USER_DATA          = 32768
};

enum Element {
    HV_ELEMENT_LAMBERTIAN          = 0,
    HV_ELEMENT_TRANSMISSIVE        = 1,
    HV_ELEMENT_GLOSSY              = 2,
    HV_ELEMENT_SPECULAR            = 3,
    HV_ELEMENT_EMISSIVE            = 4,
    HV_ELEMENT_DIFFUSION           = 5,
    HV_ELEMENT_SHADOW_TRANSPARENCY = 6,
    HV_ELEMENT_NORMAL              = 7,
    HV_ELEMENT_WEIGHT              = 8,
    HV_ELEMENT_ANISOTROPY          = 9,
    HV_ELEMENT_ROUGHNESS           = 10,
    HV_ELEMENT_ANGLE               = 11,
    HV_ELEMENT_IOR                 = 12,
    HV_ELEMENT_RESERVED13          = 13,
    HV_ELEMENT_THICKNESS           = 14,
    HV_ELEMENT_RESERVED15          = 15
};

enum Material { HV_MATERIAL_CONDUCTOR = 0, HV_MATERIAL_DIELECTRIC = 1, HV_MATERIAL_THIN_DIELECTRIC = 2 };

enum Sideness { HV_SIDENESS_FACE = 0, HV_SIDENESS_BACK = 1, HV_SIDENESS_BOTH = 2 };

enum Visibility {
    HV_VISIBILITY_INVISIBLE      = 0,
    HV_VISIBILITY_CAMERA_PRIMARY = 1,
    HV_VISIBILITY_LIGHT_PRIMARY  = 2,
    HV_VISIBILITY_VISIBLE_TO_ALL = 3
};

#endif

/* ---- Session ---- */

/** Fills the sampling tables, sets the defaults and makes shader 0, "undefined" (matte, albedo 0.85). First of all
 *  calls. */
HV_API void hvStartup(void);

/** A whole session for a scene folder: start-up, reading, preparation, all frames, pictures, shutdown.
 *  folder  path of the scene folder, with or without a trailing separator. Its subfolders shader, render, light, camera
 *          and geometry hold .hv files; missing ones count as empty. Null counts as empty.
 *  Calls hvStartup itself: do not call it before.
 */
HV_API void hvGo(const char* folder);

/** Runs all preparation stages: cameras, images, shaders, accelerator, sky light, geometry light, gaffer, renderer. */
HV_API void hvInitialize(void);

/** Renders as many frames as camera 0 has samples, then writes the pictures of all AOVs and releases the lights. */
HV_API void hvRender(void);

/** Renders one frame of camera 0 into the caller's array.
 *  count  number of RGB triples in `out`; the region has (x1 - x0) x (y1 - y0) pixels, row by row from the top. Fewer
 *         gives a prefix, of more only the region's are written.
 *  out    count x 3 floats: the clamped samples of this frame. Null: nothing is rendered.
 *  frame  0 to the camera's sample count - 1. Each call also adds sample / sample count to the first AOV, so that the
 *         picture is whole after all frames.
 */
HV_API void hvRenderPixels(int count, float* out, int frame);

/** Writes all pictures once more, resets the settings and destroys cameras, shaders, objects, images and lights. */
HV_API void hvFinalize(void);

/** Ends the library. hvStartup may follow. */
HV_API void hvShutdown(void);

/* The stages of hvInitialize, one by one, for hosts that drive them singly. */
HV_API void hvInitializeCameras(void);
HV_API void hvInitializeShaders(void);
HV_API void hvInitializeAccelerator(void);
HV_API void hvInitializeSkyLight(void);
HV_API void hvInitializeGeometryLight(void); /**< the same function as hvInitializeSkyLight */
HV_API void hvInitializeGaffer(void);        /**< point and parallel lights */
HV_API void hvInitializeRenderer(void);

/* The stages of hvFinalize. */
HV_API void hvFinalizeCameras(void);
HV_API void hvFinalizeShaders(void);
HV_API void hvFinalizeAccelerator(void);
HV_API void hvFinalizeSkyLight(void);
HV_API void hvFinalizeGeometryLight(void); /**< the same function as hvFinalizeSkyLight */
HV_API void hvFinalizeGaffer(void);
HV_API void hvFinalizeRenderer(void);

/** Shows the picture in a window while it converges. Set before hvInitialize or hvGo, at the latest before hvRender.
 *  Default: false.
 *  hvRender and hvGo then return when the window is closed, by the user, not after the last frame. Closing it earlier
 *  ends the render: the beauty picture is written as it stands, and hvFinalize writes the others. The window answers
 *  between two frames. Values are shown as they are, clipped to 0 to 1, without gamma.
 *  Without a display that can be reached (variable DISPLAY) one error line says so; hvInitialize then prepares and
 *  hvRender renders nothing, and hvGo returns at once. Without a camera there is no window. A library built with
 *  HV_PREVIEW=OFF prints one warning and renders without. */
HV_API void hvSetPreviewWindow(bool on);

/** Stored, read by nothing: pictures and preview are linear. Default: 2.2. */
HV_API void hvSetDisplayGamma(float gamma);

/* ---- Renderer settings ---- */

/** Samples that the first vertex of a path spends on its branches over the whole render. Default: 64. */
HV_API void hvSetRendererSample(int count);

/** Diffuse plus glossy bounces of a path. Default: 1; below 2 counts as 1. */
HV_API void hvSetRendererBounce(int count);

/** Longest path in vertices. Default: 8; below 2 counts as 1, above 255 as 255. */
HV_API void hvSetRendererRayDepth(int depth);

/** Depth of the last segment that a photon is followed along; the first has 0. Default: 8; below 2 counts as 1, above
 *  254 as 254. */
HV_API void hvSetRendererPhotonDepth(int depth);

/** Metres that a ray must travel, after a diffuse bounce, for its path to end at the density cell that it meets; after
 *  as many diffuse bounces as hvSetRendererBounce allows it ends there at any distance. 0 renders by path tracing
 *  alone. Default: 1. */
HV_API void hvSetRendererDistance(float metres);

/** Area of a density cell to aim at, square metres; a face has at most 255 x 255 cells. A cell takes 24 bytes, 72 while
 *  photons are cast with a seed; more than
 *  1 GB for the triangles or for the tetragons of a part end the process with exit code 1 (see hvxSetDensityCallback).
 *  0 renders by path tracing alone. Default: 1. */
HV_API void hvSetRendererResolution(float resolution);

/** Metres around a point within which the 32 nearest caustic photons are gathered: caustics blur over less where
 *  photons lie dense. Below 1e-8: no caustics. Default: 1. */
HV_API void hvSetRendererRadius(float metres);

/** Upper limit of a sample, per channel. Default: 3.4e38 each; raised to 0 at preparation. */
HV_API void hvSetRendererClamp(float r, float g, float b);

/* ---- Cameras. Camera 0 renders. ---- */

/** Appends a camera with its beauty AOV (AOV 0) and returns its handle. */
HV_API int  hvAddCamera(void);
HV_API void hvSetCameraName(int camera, const char* name);

/** Film size in pixels. Default: 960 x 540. */
HV_API void hvSetCameraResolution(int camera, int width, int height);

/** Half-open rectangle of pixels to render, y downwards. Clipped to the film. Default: the whole film. */
HV_API void hvSetCameraRegion(int camera, int x0, int y0, int x1, int y1);

/** Frames of a render, which is samples per pixel. Default: 17; limited to 1..65535 at preparation. */
HV_API void hvSetCameraSample(int camera, int count);
HV_API void hvSetCameraProjection(int camera, enum Projection projection);
HV_API void hvSetCameraAngleMeasure(int camera, enum AngleMeasure measure);

/** Stored, read by nothing. Default: 1 1 1. */
HV_API void hvSetCameraExposure(int camera, float r, float g, float b);

/** Selects the pose that the next five functions set: 1 (shutter end) from 0.5 on, else 0 (shutter start). */
HV_API void hvSetCameraTime(int camera, float time);
HV_API void hvSetCameraPosition(int camera, float x, float y, float z); /**< metres. Default: 0 0 0 */
HV_API void hvSetCameraTarget(int camera, float x, float y, float z);   /**< metres, in focus. Default: 0 1 0 */
HV_API void hvSetCameraUpVector(int camera, float x, float y, float z); /**< any length. Default: 0 0 1 */
HV_API void hvSetCameraBokeh(int camera, float degrees); /**< half-angle of the blur cone. Default: 0, pinhole */
HV_API void hvSetCameraFOV(int camera, float degrees);   /**< horizontal. Default: 45 */

/** Appends an AOV and returns its handle; the first such call returns 1. An AOV without a name is not written. */
HV_API int  hvAddCameraAOV(int camera);
HV_API void hvSetCameraAOVName(int camera, int aov, const char* path); /**< the ending names the format */
HV_API void hvSetCameraAOVChannel(int camera, int aov, enum Channel channel);
HV_API void hvSetCameraAOVUserData(int camera, int aov, const char* name); /**< vertex data of Channel::UserData */

/* ---- Shaders ---- */

/** Appends a shader without layers and returns its handle. A shader left without layers becomes a copy of shader 0. */
HV_API int hvAddShader(void);

/** A shader is born as "undefined". Name every shader: faces whose shader still has that name take the shader that
 *  their part holds at preparation instead. */
HV_API void hvSetShaderName(int shader, const char* name);
HV_API void hvSetShaderVisibility(int shader, enum Visibility visibility);
HV_API void hvSetShaderSmoothAngle(int shader, float degrees); /**< below 0 keeps given normals. Default: -1 */
HV_API void hvSetShaderRoundCorner(int shader, float value);   /**< stored, read by nothing */
HV_API void hvSetShaderTime(int shader, float time);           /**< does nothing */

/** Appends a layer: conductor, both sides, Ior and Normal white, all else black. At most 16 a side take part. */
HV_API int  hvAddSurfaceShader(int shader);
HV_API void hvSetSurfaceSideness(int shader, int layer, enum Sideness sideness);
HV_API void hvSetSurfaceMaterial(int shader, int layer, enum Material material);

/** Whether the geometry light may sample the emission of this layer; else rays alone find it. Default: false. */
HV_API void hvSetSurfaceVirtualLight(int shader, int layer, bool on);

/** Colour of a slot; with an image it multiplies the texture. */
HV_API void hvSetSurfaceColor(int shader, int layer, enum Element element, float r, float g, float b);

/** Image of a slot: a picture file, looked for as it stands and in the folders of the scene; null or empty takes it
 *  away. u = 0 is its left edge and v = 0 its lowest row (of a file with ".hdr" in its path the topmost). Bytes become
 *  0 to 1, 16-bit samples take the scale of a byte. gamma: texels are raised to it, 2.2 for ordinary pictures. A Normal
 *  slot reads 2 c - 1 as a direction in the tangent frame. A file that is missing or broken prints an error line, and
 *  the slot keeps its colour. Matrices, row-major, are stored when not null; only scene files can put matrices into
 *  effect. */
HV_API void hvSetSurfaceImage(int shader, int layer, enum Element element, const char* path, float gamma,
                              const float (*color_matrix)[4], const float (*uv_matrix)[3]);

/** Appends a displacement entry and returns its handle within the shader. Entries act one after the other, each on the
 *  finer mesh that the one before has made. Displacement goes by smooth normals: with a smooth angle of 0 it prints a
 *  warning and leaves the mesh as it is. */
HV_API int hvAddDisplacementShader(int shader);

/** How far each new vertex moves, metres: with d the offset, d.x along the tangent t, -d.y along n x t and d.z along
 *  the normal n. Without an image d is this vector; with one d is (texel - 0.5) times it, channel by channel. (Scene
 *  files can move along the axes of the object instead, by `direction`.) Default: 0 0 0, nothing moves. */
HV_API void hvSetDisplacementVector(int shader, int entry, float x, float y, float z);

/** Each triangle becomes level x level, on a curved patch through its corners; tetragons are split first. Default: 1.
 *  0 or below takes the faces away. */
HV_API void hvSetDisplacementLevel(int shader, int entry, int level);

/** Picture of the offset; arguments as in hvSetSurfaceImage. Bytes become 0 to 1, 16-bit samples 0 to 257. The mesh
 *  needs texture coordinates. */
HV_API void hvSetDisplacementImage(int shader, int entry, const char* path, float gamma, const float (*color_matrix)[4],
                                   const float (*uv_matrix)[3]);

/* ---- Objects. An object holds parts (geometry) and instances (placed objects). The last object that no instance names
 *      is the root of the scene. ---- */

HV_API int  hvAddObject(void);
HV_API void hvSetObjectName(int object, const char* name);

/** Rays that leave a primitive see no primitive of its kind and number in any other part either: give things that face
 *  each other one part. */
HV_API int hvAddPart(int object);

/** Shader of the particles and cylinders of a part, and of the triangles and tetragons added after this call. */
HV_API void hvSetShaderID(int object, int part, int shader);

/* Vertex arrays. count: number of vertices; below 1 the call does nothing. */
HV_API void hvAddPositions(int object, int part, int count, const float* positions); /**< count x 3 floats */
HV_API void hvAddNormals(int object, int part, int count, const float* normals);   /**< count x 3 floats, any length */
HV_API void hvAddTangents(int object, int part, int count, const float* tangents); /**< count x 3 floats, any length */
HV_API void hvAddUVs(int object, int part, int count, const float* uvs);           /**< count x 2 floats */
HV_API void hvAddRadii(int object, int part, int count, const float* radii);       /**< count floats, metres */

/** Appends a named set of vertex data: count x dimension floats, dimension 1, 2 or 3; any other does nothing. The set
 *  "motion" of dimension 3 moves the vertices by itself in the course of the render. */
HV_API void hvAddVertexData(int object, int part, const char* name, int dimension, int count, const float* data);

/* Primitives. Indices name vertices of the part, which may be added later; primitives that name none are left out.
 * A part holds faces, or cylinders, or particles: two of them in one part print an error ("mixed types"), and where it
 * has faces smoothing drops the vertices that no face uses, so that strands and particles are lost or misplaced. */
HV_API void hvAddTriangles(int object, int part, int count,
                           const int* indices); /**< count x 3 ints, ccw from the front */
HV_API void hvAddTetragons(int object, int part, int count,
                           const int* indices); /**< count x 4 ints, planar and convex */
HV_API void hvAddCylinders(int object, int part, int count, const int* indices); /**< count ints: segment i to i + 1 */
HV_API void hvAddParticles(int object, int part, int count, const int* indices); /**< count ints: spheres */

/** Appends an instance: identity matrix, no target, no shader override. */
HV_API int hvAddInstance(int object);

/** Places an object. Use rotations and translations: a matrix that scales leaves distances in the placed object's own
 *  units, and what is shaded there off its place. target_object: the object placed. matrix: 4 x 4, row-major, applied
 *  to column vectors; null keeps the present one. shader: overrides the shaders of all that is placed; a value that
 *  names no shader, such as -1, overrides nothing. */
HV_API void hvSetInstance(int object, int instance, int target_object, const float (*matrix)[4], int shader);

/* ---- Point lights. The light that a surface reflects is its colour times that of the light, times the cosine, over
 *      the square of the distance: no factor 1 / pi. ---- */

HV_API int  hvAddPointLight(void);                                          /**< returns its handle */
HV_API void hvSetPointLightPosition(int light, float x, float y, float z);  /**< metres. Default: 0 0 0 */
HV_API void hvSetPointLightDirection(int light, float x, float y, float z); /**< axis of the cone. Default: 0 1 0 */
HV_API void hvSetPointLightColor(int light, float r, float g, float b);     /**< default 1 1 1 */
HV_API void hvSetPointLightPhoton(int light, int count); /**< photons to cast, once a render. Default: 0 */

/** Shadow rays of a first vertex over the whole render, where the light has a blur. At least one a frame. Default: 1.
 *  */
HV_API void hvSetPointLightSample(int light, int count);
HV_API void hvSetPointLightBlur(int light, float radius); /**< of the sphere that shines, metres. Default: 0, a point */

/** Narrows the cosine c to (c - offset) / (1 - offset), so that surfaces seen edge-on from the light stay dark; but at
 *  first vertices not where a light has a blur or enters by diffusion. Below 1. Default: 0.1; 0 gives the plain cosine.
 *  */
HV_API void hvSetPointLightOffset(int light, float offset);

/** Angles from the axis, degrees: full light up to the inner one, none from the outer one on, linear between. Defaults:
 *  0 and 180, so that a light fades all the way from its axis to the opposite direction. For light all around set both
 *  to angles above 180, such as 180.5 and 181. */
HV_API void hvSetPointLightInnerAngle(int light, float degrees);
HV_API void hvSetPointLightOuterAngle(int light, float degrees);

/** AOVs of a light collect what direct lighting by it brings; channels Lambertian, Transmissive and Glossy, of which
 *  each call adds one to the set. hvxAddLightShare splits whole pictures by light. */
HV_API int  hvAddPointLightAOV(int light);
HV_API void hvSetPointLightAOVName(int light, int aov, const char* path);
HV_API void hvSetPointLightAOVChannel(int light, int aov, enum Channel channel);
HV_API void hvSetPointLightShaderLink(int light, int shader); /**< appends; no link lights everything */

/* ---- Parallel lights: a sun. The setters are those of point lights. ---- */

HV_API int  hvAddParallelLight(void);
HV_API void hvSetParallelLightDirection(int light, float x, float y,
                                        float z); /**< along which it shines; must be set */
HV_API void hvSetParallelLightColor(int light, float r, float g,
                                    float b); /**< irradiance head-on, over pi. Default: 1 1 1 */
HV_API void hvSetParallelLightPhoton(int light, int count);
HV_API void hvSetParallelLightSample(int light, int count);
HV_API void hvSetParallelLightBlur(int   light,
                                   float degrees); /**< half-angle of the sun's disc; 0.27 for ours. Default: 0 */
HV_API void hvSetParallelLightOffset(int light, float offset);
HV_API int  hvAddParallelLightAOV(int light);
HV_API void hvSetParallelLightAOVName(int light, int aov, const char* path);
HV_API void hvSetParallelLightAOVChannel(int light, int aov, enum Channel channel);
HV_API void hvSetParallelLightShaderLink(int light, int shader);

/* ---- Sky light: one, global ---- */

/** Picture of the sky: longitude by latitude, the zenith at the first row in memory, which is the top of a file with
 *  ".hdr" in its path and the bottom of any other. u = 1 - (pi + atan2(y, x)) / 2 pi, with y towards north, z to the
 *  zenith and x = zenith x north. It is multiplied by the colour and sampled by brightness. Without one, or with one
 *  that cannot be read (an error line), the sky has its colour all around. */
HV_API void hvSetSkyLightImage(const char* path);
HV_API void hvSetSkyLightBackdrop(const char* path); /**< picture behind the scene, seen by camera rays alone */
HV_API void hvSetSkyLightPhoton(
    int count); /**< for density cells and light paths, not for caustics. Default: 1000000 */

/** Shadow rays of a first vertex over the whole render, drawn from the picture. 0 leaves it to scattered rays, as does
 *  a sky without a picture. Default: 64. */
HV_API void hvSetSkyLightSample(int count);
HV_API void hvSetSkyLightColor(float r, float g, float b);  /**< default 0.75 each; black turns the sky off */
HV_API void hvSetSkyLightNorth(float x, float y, float z);  /**< default 0 1 0; made perpendicular to the zenith */
HV_API void hvSetSkyLightZenith(float x, float y, float z); /**< default 0 0 1 */

/** Appends to the shaders that the sky acts on. A list hides the sky from the camera. */
HV_API void hvSetSkyLightShaderLink(int shader);
HV_API int  hvAddSkyLightAOV(void);
HV_API void hvSetSkyLightAOVName(int aov, const char* path);
HV_API void hvSetSkyLightAOVChannel(int aov, enum Channel channel); /**< rays that meet the sky feed all of its AOVs */

/* ---- Geometry light: all emissive surfaces together. Of those whose layers are virtual lights it keeps 18481 points,
 *      from which direct lighting draws. ---- */

/** Photons to cast. Above 0 they, and not rays, carry the light of sampled emitters that goes from a diffuse surface
 *  over a mirror to the emitter: as caustics, where the emitter is a virtual light. Default: 1000000. */
HV_API void hvSetGeometryLightPhoton(int count);

/** Shadow rays of a first vertex over the whole render. 0, the default, leaves all emission to scattered rays. */
HV_API void hvSetGeometryLightSample(int count);

/** Appends to the shaders that emitters act on. A list hides them from the camera. */
HV_API void hvSetGeometryLightShaderLink(int shader);

/** An AOV of the geometry light collects what its points bring, of one shader where it has a name. Rays that meet an
 *  emitter feed only AOVs whose channel is one element and nothing else, which this call cannot set: see
 *  hvxAddLightShare. */
HV_API int  hvAddGeometryLightAOV(void);
HV_API void hvSetGeometryLightAOVName(int aov, const char* path);
HV_API void hvSetGeometryLightAOVShaderName(int aov, const char* name);
HV_API void hvSetGeometryLightAOVChannel(int aov, enum Channel channel);

#ifdef __cplusplus
}
#endif

#endif
