/** hvx.h: additions to hv.h, in the same library. Unless a function of this header is called, nothing changes.
 *
 *  Where hv.h has no results and no way to look inside, these functions let a host read a scene folder without
 *  rendering it, fix the random numbers, follow and stop a render, and fetch the pixels. The same rules hold: one
 *  thread, bad arguments are ignored, nothing is read out of bounds.
 */
#ifndef HVX_H
#define HVX_H

#include "hv.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Version of the library, "major.minor.patch". Never null; valid for ever. */
HV_API const char* hvxVersion(void);

/** Fixes the random numbers: a render is then bit-identical from run to run and for any number of threads. Call before
 *  hvStartup. Holds until changed. */
HV_API void hvxSetSeed(uint64_t seed);

/** Goes back to random numbers from the processor. */
HV_API void hvxClearSeed(void);

/** Number of threads of all parallel stages. 1 to 256; 0 or less: all that are available (the default). */
HV_API void hvxSetThreadCount(int count);

/** Switches the report on standard output off (false) or on (true, the default). Errors and warnings are part of it. */
HV_API void hvxSetReport(bool on);

/** Prints the banner that hvGo begins its report with. */
HV_API void hvxPrintBanner(void);

/** Reads a scene folder into the session without preparing or rendering it: what hvGo does between start-up and
 *  hvInitialize. Returns the number of scene files read, or -1 if the folder cannot be opened. */
HV_API int hvxLoadScene(const char* folder);

/** Something in a scene folder that is not as its author will have meant it. The texts are valid during the call. */
typedef struct hvxFinding {
    const char* file;         /**< path, or the folder itself */
    int         line, column; /**< from 1, columns in bytes; 0: the file or folder as a whole */
    bool        is_error;     /**< the scene lacks what is written there; false: it is read, but in vain or oddly */
    const char* text;         /**< one line, without a line end */
} hvxFinding;

/** Reads a scene folder as hvxLoadScene does and tells what is wrong with it, where loading and rendering are silent:
 *  words that are no keywords, blocks that end too early or never, values that cannot be read, missing files, names
 *  that nothing defines, settings without effect. Pictures are looked for, not read; of models the names of materials
 *  are read. Session, report and settings stay as they are; it may be called before hvStartup.
 *  callback    called for each finding, sorted by file and line; null: none
 *  user        passed on
 *  Returns the number of findings, -1 if the folder cannot be opened. */
typedef void (*hvxFindingCallback)(const hvxFinding* finding, void* user);
HV_API int hvxCheckScene(const char* folder, hvxFindingCallback callback, void* user);

/** Tells all keywords of scene files: tables in Markdown, a block each, with values, units and defaults, made from what
 *  the reader itself goes by. The callback gets line after line, without line ends; a line is valid during the call. */
typedef void (*hvxLineCallback)(const char* line, void* user);
HV_API void hvxListKeywords(hvxLineCallback callback, void* user);

/** Number of cameras in the session. */
HV_API int hvxGetCameraCount(void);

/** Film size and number of frames of a camera; null pointers are skipped. Returns false for a bad handle. */
HV_API bool hvxGetCamera(int camera, int* width, int* height, int* sample);

/** Number of AOVs of a camera, the beauty AOV included; 0 for a bad handle. */
HV_API int hvxGetCameraAOVCount(int camera);

/** Pixels of a camera's AOV. */
typedef struct hvxImage {
    int          width, height; /**< in pixels */
    int          channels;      /**< floats per pixel */
    const float* pixels;        /**< height x width x channels, row by row from the top; valid until the camera is
                                     prepared again or destroyed */
} hvxImage;

/** Fills `image` with the present state of an AOV. Returns false, and leaves `image`, for a bad handle or an AOV that
 *  is not prepared. */
HV_API bool hvxGetCameraAOV(int camera, int aov, hvxImage* image);

#ifdef __cplusplus
/** Lights: the two single ones, and the kinds that a scene may have any number of. */
enum class hvxLight : int { Sky = 0, Geometry = 1, Point = 2, Parallel = 3 };
#else
enum hvxLight { HVX_LIGHT_SKY = 0, HVX_LIGHT_GEOMETRY = 1, HVX_LIGHT_POINT = 2, HVX_LIGHT_PARALLEL = 3 };
#endif

/** Number of point and of parallel lights in the session. */
HV_API int hvxGetPointLightCount(void);
HV_API int hvxGetParallelLightCount(void);

/** Appends an AOV to a light that collects what the light brings to the picture over one element, by direct lighting as
 *  by rays that meet the light: the element of the last surface before the light. A light that the camera itself sees
 *  counts as specular. So the four elements together are the light's share of the picture: exactly, but where light
 *  enters by diffusion, where emission or a transmissive element is dimmed by Fresnel's factor (Ior other than 1), in
 *  media, and where the picture is clamped.
 *  light    handle of a point or parallel light; ignored for the two single lights.
 *  element  Channel Lambertian, Transmissive, Glossy or Specular; any other is refused.
 *  name     path of the picture, written at the end of the render; null or empty: none is written.
 *  Call it before hvInitialize. Returns the AOV's handle in the light's list, -1 if it is refused. The AOV goes when
 *  the render ends, or with hvFinalize; AOVs behind it in the lists of sky and geometry light then move up. */
HV_API int hvxAddLightShare(enum hvxLight kind, int light, enum Channel element, const char* name);

/** Fills `image` with the present state of a light's AOV, as hvxGetCameraAOV does. hvRender writes and releases the
 *  AOVs of the lights when it ends: read them in a frame callback, or render by hvRenderPixels. */
HV_API bool hvxGetLightAOV(enum hvxLight kind, int light, int aov, hvxImage* image);

/** Called by hvRender and hvGo after each frame with the number of finished frames and of all frames. Returning false
 *  ends the render there: the closing report is printed and the pictures are written as they stand. */
typedef bool (*hvxFrameCallback)(int finished, int total, void* user);
HV_API void hvxSetFrameCallback(hvxFrameCallback callback, void* user); /**< null: none, the default */

/** Called after each attempt to write a picture with a name: its path and whether a file was written. */
typedef void (*hvxWriteCallback)(const char* path, bool written, void* user);
HV_API void hvxSetWriteCallback(hvxWriteCallback callback, void* user); /**< null: none, the default */

/** What density cells would take, told by hvInitialize, hvGo and hvInitializeAccelerator right before they end the
 *  process: the cells of one kind of faces of one part would pass the limit of 1 GB. Nothing has been cast or rendered
 *  then.
 *  megabytes   of the largest such set; total_megabytes: of all cells.
 *  resolution  near the smallest value of hvSetRendererResolution (square metres a cell) at which each set fits; 0 if
 *              there is none: the faces are too many.
 *  The callback may end the process itself; if it returns, the message of the limit follows, and exit code 1. */
typedef void (*hvxDensityCallback)(double megabytes, double total_megabytes, float resolution, void* user);
HV_API void hvxSetDensityCallback(hvxDensityCallback callback, void* user); /**< null: none, the default */

/** Absorption inside fibres that wear a shader: light that crosses a fibre through its middle is left exp(-4 a) of it,
 *  whatever the radius. Each channel at least 0, default 0 0 0, which is clear. It colours the light that goes through
 *  a fibre (the lobes TT and TRT of a Dielectric shader) and leaves the highlight on its surface white, as in real hair.
 *  Set it before hvInitialize. A bad handle, a negative or non-finite channel change nothing. */
HV_API void hvxSetHairAbsorption(int shader, float r, float g, float b);

/** Decodes each picture file in a forked child process, so that a file that crashes, stalls or swamps its decoder costs
 *  that picture and one error line of the report, never the host. Files of uncommon formats, whose decoders nothing
 *  else guards, are read in this mode only.
 *  on         true: a child for each picture; false (the default): in the host's process, after a check of the file.
 *  seconds    limit of a child in processor time and by the clock.                          0 or less: 20
 *  megabytes  memory that a child may take beyond what the host's process has in use.
 *             0 or less: half of the machine's, at least 2048
 *  Holds until changed. The child is a copy of the host's process that runs the decoder alone; it is gone, and reaped,
 *  when the picture is loaded or refused. A host whose other threads use the same codecs should leave it off: a lock
 *  that such a thread holds at that moment stays locked in the child, which then ends by its limit of time. */
HV_API void hvxSetPictureChild(bool on, int seconds, int megabytes);

#ifdef __cplusplus
}
#endif

#endif
