/* Renders one frame of an empty scene under a sky of 0.5 with the installed library and checks a pixel. */

#include <hv.h>
#include <hvx.h>
#include <math.h>

int main(void)
{
    int   status;
    float pixels[4 * 4 * 3] = {0};
    hvxSetReport(false);
    hvStartup();
    hvAddCamera();
    hvSetCameraResolution(0, 4, 4);
    hvSetCameraSample(0, 1);
    hvSetCameraAOVName(0, 0, "");
    hvSetSkyLightColor(0.5f, 0.5f, 0.5f);
    hvSetSkyLightPhoton(0);
    hvSetRendererDistance(0);
    hvInitialize();
    hvRenderPixels(4 * 4, pixels, 0);
    status = fabsf(pixels[0] - 0.5f) < 1e-6f && fabsf(pixels[47] - 0.5f) < 1e-6f ? 0 : 1;
    hvFinalize();
    hvShutdown();
    return status;
}
