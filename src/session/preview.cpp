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
#include <csetjmp>
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
    bool            is_refused       = false;                  ///< no display when last asked
    bool            is_lost          = false;                  ///< no window can be had any more in this process
    char            reason[512]      = "the display is gone";  ///< why it is lost
    int             window           = 0;                      ///< GLUT's number; 0: none is open
    Display*        connection       = nullptr;                ///< GLUT's, while a window is open
    XIOErrorHandler other_io_handler = nullptr;                ///< the host's, while we speak to the server
};

PreviewState Preview;

/// Where this thread goes on if the server goes while it speaks to it, or GLUT fails.
thread_local std::jmp_buf* WayOut = nullptr;

// Xlib would end the process, and the render with it. Returning is no way either: the drivers of OpenGL take the
// answers that never came for sizes and addresses, and crash.
int OnConnectionError(Display* connection)
{
    if (WayOut) std::longjmp(*WayOut, 1);
    return Preview.other_io_handler ? Preview.other_io_handler(connection) : 0;
}

/// Makes a call that speaks to the server. Returns whether that can go on: a call that loses the server, or with which
/// GLUT fails, is left where it stands, as are all locks that the driver and GLUT hold then, so that no other is made
/// in this process. What is called must own nothing that a destructor would have to release.
template <typename Call>
bool Speak(const Call& call)
{
    if (Preview.is_lost) return false;
    std::jmp_buf way_out;
    Preview.other_io_handler = XSetIOErrorHandler(OnConnectionError);
    if (setjmp(way_out) == 0) {
        WayOut = &way_out;
        call();
    } else {
        Preview.is_lost = true;
    }
    WayOut = nullptr;
    XSetIOErrorHandler(Preview.other_io_handler);
    return !Preview.is_lost;
}

/// What keeps a display from showing a window, null for nothing.
const char* FindProblem(Display* connection)
{
    if (!connection) return "cannot be reached";
    if (glutGet(GLUT_INIT_STATE)) return nullptr;  // found good before
    int base = 0, count = 0;
    if (!glXQueryExtension(connection, &base, &base)) return "has no OpenGL";
    const int    wanted[] = {GLX_DOUBLEBUFFER, True, None};
    GLXFBConfig* found    = glXChooseFBConfig(connection, DefaultScreen(connection), wanted, &count);
    if (found) XFree(found);
    return found && count > 0 ? nullptr : "has no double-buffered OpenGL";
}

/// What no display should lead to any more. GLUT cannot go on from here, and its handler must not return.
void OnGlutError(const char* format, va_list arguments)
{
    std::vsnprintf(Preview.reason, sizeof Preview.reason, format, arguments);
    if (WayOut) std::longjmp(*WayOut, 1);
    PrintError("preview - " + std::string(Preview.reason));
    std::exit(EXIT_FAILURE);  // a call that the host made to GLUT
}

/// Once in a process: GLUT refuses a second start.
void StartGlut()
{
    if (glutGet(GLUT_INIT_STATE)) return;
    char  name[]      = "halvorne";
    char* arguments[] = {name, nullptr};
    int   count       = 1;
    glutInitErrorFunc(OnGlutError);
    glutInit(&count, arguments);
}

/// Tries the display before GLUT does, which would end the process on failure, and starts GLUT. Returns what is wrong.
std::string TryDisplay()
{
    const char* const name = std::getenv("DISPLAY");
    if (!name || !*name) return "there is no display, DISPLAY is not set";
    const char* problem  = nullptr;
    const bool  is_there = Speak([&] {
        Display* const connection = XOpenDisplay(nullptr);
        problem                   = FindProblem(connection);
        if (!problem) StartGlut();
        // Not before GLUT has its own: some servers start anew when their last client leaves, and refuse others.
        if (connection) XCloseDisplay(connection);
    });
    if (!is_there) return Preview.reason + std::string(", no window can open in this process any more");
    return problem ? "the display '" + std::string(name) + "' " + problem : "";
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
    XSync(Preview.connection, False);  // a server that has gone is best noticed before the driver begins to draw
    glClear(GL_COLOR_BUFFER_BIT);      // a window that was made larger is black beside the picture
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
    glutInitErrorFunc(OnGlutError);
    glutSetOption(GLUT_ACTION_ON_WINDOW_CLOSE, GLUT_ACTION_GLUTMAINLOOP_RETURNS);
    glutInitWindowSize(std::min(camera.width, kLargestWindow), std::min(camera.height, kLargestWindow));
    glutInitDisplayMode(GLUT_RGBA | GLUT_DOUBLE);
    Preview.window     = glutCreateWindow("halvorne");
    Preview.connection = glXGetCurrentDisplay();
    glutDisplayFunc(DisplayPreview);
    glutCloseFunc(ClosePreview);
    // Where nobody places windows, GLUT's own place is one pixel beside the screen.
    if (!HasWindowManager(Preview.connection)) glutPositionWindow(0, 0);
}

/// Ends the process before GLUT takes its windows down, which would wait for ever: the call that was left to make one
/// holds a lock of the driver. Other handlers of the exit are run if they were set later than GLUT's.
void ExitWithoutGlut(int status, void*)
{
    std::fflush(nullptr);
    std::_Exit(status);
}

/// Takes down what the user's closing has left. A window that is still open is closed as by the user.
void CloseWindow()
{
    Speak([] {
        if (Preview.window) glutDestroyWindow(Preview.window);
        glutMainLoopEvent();  // which destroys windows at its end
    });
    Preview.window     = 0;
    Preview.connection = nullptr;
}

/// The steps of glutMainLoop with RenderFrame as idle callback. Called one by one for two reasons: glutMainLoop takes
/// all of GLUT down when it returns, so that a second render would find none, and an exception must not cross it.
/// Returns false when the display is lost.
bool RunMainLoop()
{
    while (Speak(glutMainLoopEvent)) {
        if (!Preview.window) return true;
        RenderFrame();
        if (IsRenderOver()) std::this_thread::sleep_for(kRestOfFinished);
    }
    return false;
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
    const Camera* const camera = ActiveCamera();
    if (!HasFloatPicture(camera)) return false;
    struct Closer {
        ~Closer() { CloseWindow(); }
    } closer;
    const bool is_open = Speak([camera] { OpenWindow(*camera); });
    if (!is_open) on_exit(ExitWithoutGlut, nullptr);
    if (!is_open || !RunMainLoop())
        PrintError("preview - " + std::string(Preview.reason) + ", the picture is written as it stands");
    return true;
}

void RefreshPreview()
{
    if (!Preview.window) return;
    Speak([] {
        glutSetWindow(Preview.window);
        DisplayPreview();
        glutPostRedisplay();
    });
}

}  // namespace hv
