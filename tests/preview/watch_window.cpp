// Looks at the preview window from outside, as a user and a window manager would. One action a call:
//   wait            until the window is shown; prints its width and height
//   gone            until there is none
//   match FILE      until the window shows a binary PPM picture at its top left corner, each byte within one step, and
//                   black beside it
//   close           the button of the title bar
//   resize W H, hide, show
//   cut             ends the program's connection to the display
// Waits half a minute at most. Exit status 0, or 1 with a line on standard error.

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* kTitle = "halvorne";

struct Picture {
    int                        width = 0, height = 0;
    std::vector<unsigned char> bytes;  ///< height x width x 3, top row first
};

/// The viewable top window of that title, or 0.
Window FindWindow(Display* display)
{
    Window       root = 0, parent = 0, *children = nullptr, found = 0;
    unsigned int count = 0;
    if (!XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count)) return 0;
    for (unsigned int i = 0; i < count && !found; ++i) {
        char*             name = nullptr;
        XWindowAttributes attributes;
        if (!XFetchName(display, children[i], &name) || !name) continue;
        const bool is_shown =
            XGetWindowAttributes(display, children[i], &attributes) && attributes.map_state == IsViewable;
        if (is_shown && std::string(name) == kTitle) found = children[i];
        XFree(name);
    }
    if (children) XFree(children);
    return found;
}

/// Repeats a question until it is answered by true. Windows may go between two requests: such errors are no answer.
template <class Question>
bool Eventually(const Question& question)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!question()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

bool ReadPicture(const std::string& path, Picture& picture)
{
    std::ifstream file(path, std::ios::binary);
    std::string   kind;
    int           largest = 0;
    if (!(file >> kind >> picture.width >> picture.height >> largest) || kind != "P6" || largest != 255) return false;
    file.get();
    picture.bytes.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) * 3);
    file.read(reinterpret_cast<char*>(picture.bytes.data()), static_cast<std::streamsize>(picture.bytes.size()));
    return static_cast<bool>(file);
}

/// Screenshot of a window; empty if that is gone or hidden.
Picture Screenshot(Display* display, Window window)
{
    XWindowAttributes attributes;
    if (!window || !XGetWindowAttributes(display, window, &attributes)) return {};
    XImage* image = XGetImage(display, window, 0, 0, static_cast<unsigned>(attributes.width),
                              static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
    if (!image) return {};
    Picture picture{image->width, image->height, {}};
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x) {
            const unsigned long pixel = XGetPixel(image, x, y);  // 24 bits, red highest: asked of the server
            for (const int shift : {16, 8, 0}) picture.bytes.push_back(static_cast<unsigned char>(pixel >> shift));
        }
    XDestroyImage(image);
    return picture;
}

/// What is wrong with a screenshot, empty for nothing.
std::string Compare(const Picture& shot, const Picture& wanted)
{
    for (int y = 0; y < shot.height; ++y)
        for (int x = 0; x < shot.width; ++x)
            for (int channel = 0; channel < 3; ++channel) {
                const auto at = [&](const Picture& of) {
                    return of.bytes[static_cast<std::size_t>((y * of.width + x) * 3 + channel)];
                };
                const bool is_beside = x >= wanted.width || y >= wanted.height;
                const int  expected  = is_beside ? 0 : at(wanted);
                const int  shown     = at(shot);
                if (std::abs(shown - expected) > (is_beside ? 0 : 1))
                    return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") channel " +
                           std::to_string(channel) + " shows " + std::to_string(shown) + " instead of " +
                           std::to_string(expected);
            }
    return shot.bytes.empty() ? "no window" : "";
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "watch_window: %s\n", message.c_str());
    return 1;
}

int Match(Display* display, const std::string& path)
{
    Picture wanted;
    if (!ReadPicture(path, wanted)) return Fail("'" + path + "' is no binary PPM");
    std::string problem;
    const bool  is_same = Eventually([&] {
        problem = Compare(Screenshot(display, FindWindow(display)), wanted);
        return problem.empty();
    });
    return is_same ? 0 : Fail(problem);
}

int Wait(Display* display)
{
    XWindowAttributes attributes;
    const bool        is_shown = Eventually([&] {
        const Window window = FindWindow(display);
        return window && XGetWindowAttributes(display, window, &attributes);
    });
    if (!is_shown) return Fail("no window");
    std::printf("%d %d\n", attributes.width, attributes.height);
    return 0;
}

void SendClose(Display* display, Window window)
{
    XEvent event               = {};
    event.xclient.type         = ClientMessage;
    event.xclient.window       = window;
    event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    event.xclient.format       = 32;
    event.xclient.data.l[0]    = static_cast<long>(XInternAtom(display, "WM_DELETE_WINDOW", False));
    XSendEvent(display, window, False, NoEventMask, &event);
}

/// A hidden window is not found by its being shown: its number is kept where the display keeps texts.
Window KeptWindow(Display* display)
{
    int               count = 0;
    char* const       bytes = XFetchBytes(display, &count);
    const std::string text(bytes ? bytes : "", static_cast<std::size_t>(count));
    if (bytes) XFree(bytes);
    return std::strtoul(text.c_str(), nullptr, 10);
}

int Act(Display* display, const std::string& action, const std::vector<std::string>& arguments)
{
    const Window window = action == "show" ? KeptWindow(display) : FindWindow(display);
    if (!window) return Fail("no window to " + action);
    if (action == "close") {
        SendClose(display, window);
    } else if (action == "resize" && arguments.size() == 2) {
        XResizeWindow(display, window, static_cast<unsigned>(std::stoi(arguments[0])),
                      static_cast<unsigned>(std::stoi(arguments[1])));
    } else if (action == "hide") {
        const std::string number = std::to_string(window);
        XStoreBytes(display, number.c_str(), static_cast<int>(number.size()));
        XUnmapWindow(display, window);
    } else if (action == "show") {
        XMapWindow(display, window);
    } else if (action == "cut") {
        XKillClient(display, window);
    } else {
        return Fail("unknown action " + action);
    }
    XSync(display, False);
    return 0;
}

}  // namespace

int main(int argument_count, char** arguments)
{
    const std::vector<std::string> words(arguments + 1, arguments + argument_count);
    if (words.empty()) return Fail("no action");
    Display* const display = XOpenDisplay(nullptr);
    if (!display) return Fail("no display");
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });

    if (words[0] == "wait") return Wait(display);
    if (words[0] == "gone") return Eventually([&] { return !FindWindow(display); }) ? 0 : Fail("the window stays");
    if (words[0] == "match" && words.size() == 2) return Match(display, words[1]);
    return Act(display, words[0], {words.begin() + 1, words.end()});
}
