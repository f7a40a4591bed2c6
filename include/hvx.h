/** hvx.h: additions to hv.h, in the same library. Unless a function of this header is called, nothing changes.
 *
 *  Where hv.h has no results and no way to look inside, these functions let a host read a scene folder without rendering
 *  it, fix the random numbers, follow and stop a render, and fetch the pixels. The same rules hold: one thread, bad
 *  arguments are ignored, nothing is read out of bounds.
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

/** Fills `image` with the present state of an AOV. Returns false, and leaves `image`, for a bad handle or an AOV that is
 *  not prepared. */
HV_API bool hvxGetCameraAOV(int camera, int aov, hvxImage* image);

/** Called by hvRender and hvGo after each frame with the number of finished frames and of all frames. Returning false
 *  ends the render there: the closing report is printed and the pictures are written as they stand. */
typedef bool (*hvxFrameCallback)(int finished, int total, void* user);
HV_API void hvxSetFrameCallback(hvxFrameCallback callback, void* user); /**< null: none, the default */

/** Called after each attempt to write a picture with a name: its path and whether a file was written. */
typedef void (*hvxWriteCallback)(const char* path, bool written, void* user);
HV_API void hvxSetWriteCallback(hvxWriteCallback callback, void* user); /**< null: none, the default */

#ifdef __cplusplus
}
#endif

#endif
