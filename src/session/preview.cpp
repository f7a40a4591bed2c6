#include "session/preview.h"

#include "output/output.h"
#include "session/console.h"
#include "session/guard.h"
#include "session/session.h"
#include "session/settings.h"

#include <GL/freeglut.h>
#include <GL/glx.h>
#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace hv {
namespace {

constexpr int  kLargestWindow  = 16384;  // a side; drivers and the protocol take little more. The rest is cut off
constexpr auto kRestOfFinished = std::chrono::milliseconds(50);  // between two refreshes of a finished picture

/// What the callbacks of GLUT and Xlib share, which take no user data.
struct PreviewState {
    bool            is_refused       = false;    ///< no display when last asked
    bool            is_disconnected  = false;    ///< the server has gone, or has cut us off
    int             window           = 0;        ///< GLUT's number; 0: none is open
    Display*        connection       = nullptr;  ///< GLUT's, while a window is open
    XIOErrorHandler other_io_handler = nullptr;  ///< the host's, while a window is open
};

PreviewState Preview;

/// What keeps a display from showing a window, empty for nothing.
std::string FindProblem(Display* connection)
{
    int base = 0, count = 0;
    if (!glXQueryExtension(connection, &base, &base)) return "has no OpenGL";
    const int    wanted[] = {GLX_DOUBLEBUFFER, True, None};
    GLXFBConfig* found    = glXChooseFBConfig(connection, DefaultScreen(connection), wanted, &count);
    if (found) XFree(found);
    return found && count > 0 ? "" : "has no double-buffered OpenGL";
}

/// What no display should lead to any more. GLUT cannot go on from here, and its handler must not return.
void EndOnGlutError(const char* format, va_list arguments)
{
    char message[512];
    std::vsnprintf(message, sizeof message, format, arguments);
    PrintError("preview - " + std::string(message));
    std::exit(EXIT_FAILURE);
}

/// Once in a process: GLUT refuses a second start.
void StartGlut()
{
    if (glutGet(GLUT_INIT_STATE)) return;
    char  name[]      = "halvorne";
    char* arguments[] = {name, nullptr};
    int   count       = 1;
    glutInitErrorFunc(EndOnGlutError);
    glutInit(&count, arguments);
}

/// Tries the display before GLUT does, which would end the process on failure, and starts GLUT. Returns what is wrong.
std::string TryDisplay()
{
    const char* const name = std::getenv("DISPLAY");
    if (!name || !*name) return "there is no display, DISPLAY is not set";
    Display* const connection = XOpenDisplay(nullptr);
    if (!connection) return "the display '" + std::string(name) + "' cannot be reached";

    std::string problem = FindProblem(connection);
    if (problem.empty())
        StartGlut();
    else
        problem = "the display '" + std::string(name) + "' " + problem;
    // Not before GLUT has its own: some servers start anew when their last client leaves, and refuse others meanwhile.
    XCloseDisplay(connection);
    return problem;
}

/// Whether the film of a camera is what DisplayPreview draws. Hosts may change the camera between frames.
bool HasFloatPicture(const Camera* camera)
{
    if (!camera || !IsFilmPrepared(*camera)) return false;
    const Image&      image = camera->aovs[0].image;
    const std::size_t count = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) * 3;
    return image.bits == 32 && image.channels == 3 && !image.packed && image.pixels32.size() == count;
}

/// The display callback. Values go as they are: no gamma, and OpenGL clips them.
void DisplayPreview()
{
    const Camera* camera = ActiveCamera();
    if (!HasFloatPicture(camera)) return;
    XSync(Preview.connection, False);  // the drivers of OpenGL crash where they draw on a lost connection
    if (Preview.is_disconnected) return;
    glClear(GL_COLOR_BUFFER_BIT);  // a window that was made larger is black beside the picture
    glRasterPos2i(-1, 1);
    glPixelZoom(1, -1);  // row 0 is the top row
    glDrawPixels(camera->width, camera->height, GL_RGB, GL_FLOAT, camera->aovs[0].image.pixels32.data());
    glutSwapBuffers();
    glFlush();
}

/// The close callback: saves the mean of the frames so far. Other pictures are left to hvFinalize.
void ClosePreview()
{
    Preview.window       = 0;
    const Camera* camera = ActiveCamera();
    if (camera && !camera->aovs.empty()) Guarded([&] { WriteImage(camera->aovs[0].image); });
}

// Xlib would end the process, and the render with it, when the server goes or a window manager cuts the client off.
int OnConnectionError(Display* connection)
{
    if (connection == Preview.connection || !Preview.other_io_handler) return 0;
    return Preview.other_io_handler(connection);
}

void OnDisconnected(Display*, void*) { Preview.is_disconnected = true; }

bool HasWindowManager(Display* connection)
{
    const Atom property = XInternAtom(connection, "_NET_SUPPORTING_WM_CHECK", True);
    if (property == None) return false;
    Atom           type   = None;
    int            format = 0;
    unsigned long  count = 0, rest = 0;
    unsigned char* bytes = nullptr;
    XGetWindowProperty(connection, DefaultRootWindow(connection), property, 0, 1, False, AnyPropertyType, &type,
                       &format, &count, &rest, &bytes);
    if (bytes) XFree(bytes);
    return count > 0;
}

void OpenWindow(const Camera& camera)
{
    glutInitErrorFunc(EndOnGlutError);
    glutSetOption(GLUT_ACTION_ON_WINDOW_CLOSE, GLUT_ACTION_GLUTMAINLOOP_RETURNS);
    glutInitWindowSize(std::min(camera.width, kLargestWindow), std::min(camera.height, kLargestWindow));
    glutInitDisplayMode(GLUT_RGBA | GLUT_DOUBLE);
    Preview.is_disconnected = false;
    Preview.window          = glutCreateWindow("halvorne");
    glutDisplayFunc(DisplayPreview);
    glutCloseFunc(ClosePreview);

    Preview.connection       = glXGetCurrentDisplay();
    Preview.other_io_handler = XSetIOErrorHandler(OnConnectionError);
    XSetIOErrorExitHandler(Preview.connection, OnDisconnected, nullptr);
    // Where nobody places windows, GLUT's own place is one pixel beside the screen.
    if (!HasWindowManager(Preview.connection)) glutPositionWindow(0, 0);
}

/// Takes down what the user's closing has left. A window that is still open is closed as by the user.
void CloseWindow()
{
    if (!Preview.is_disconnected) {
        if (Preview.window) glutDestroyWindow(Preview.window);
        glutMainLoopEvent();  // which destroys windows at its end
    }
    if (Preview.is_disconnected) glutExit();  // GLUT forgets the dead connection and may be started again
    XSetIOErrorHandler(Preview.other_io_handler);
    Preview.connection = nullptr;
}

bool IsWindowOpen() { return Preview.window && !Preview.is_disconnected; }

/// The steps of glutMainLoop with RenderFrame as idle callback. Called one by one for two reasons: glutMainLoop takes
/// all of GLUT down when it returns, so that a second render would find none, and an exception must not cross it.
void RunMainLoop()
{
    while (IsWindowOpen()) {
        glutMainLoopEvent();
        if (!IsWindowOpen()) return;
        RenderFrame();
        if (IsRenderOver()) std::this_thread::sleep_for(kRestOfFinished);
    }
}

}  // namespace

bool PreparePreview()
{
    Preview.is_refused = false;
    if (!Settings.PreviewWindow) return true;
    const std::string problem = TryDisplay();
    if (problem.empty()) return true;
    PrintError("preview - " + problem);
    Preview.is_refused = true;
    return false;
}

bool IsPreviewRefused() { return Preview.is_refused; }

bool RunPreview()
{
    if (!HasFloatPicture(ActiveCamera())) return false;
    OpenWindow(*ActiveCamera());
    struct Closer {
        ~Closer() { CloseWindow(); }
    } closer;
    RunMainLoop();
    if (Preview.window) PrintError("preview - the display is gone, the picture is written as it stands");
    return true;
}

void RefreshPreview()
{
    if (!IsWindowOpen()) return;
    glutSetWindow(Preview.window);
    DisplayPreview();
    glutPostRedisplay();
}

}  // namespace hv
