// A host that renders scene folders with the preview window set.
//   go FOLDER                  hvGo, once
//   twice FOLDER OUT1 OUT2     two sessions, each with its window
//   early FOLDER OUT FRAMES    ends after hvRender, without finalizing
//   late FOLDER OUT            asks for the window after preparation only
//   stop FOLDER OUT FRAMES K   no window: stopped after K of FRAMES frames
// Every picture with the seed 1.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "hv.h"
#include "hvx.h"

namespace {

bool StopAfter(int finished, int, void* user) { return finished < *static_cast<int*>(user); }

/// A session for one picture up to its render; frames of the scene for `frames` 0. The window is asked for before or
/// after preparation.
void RenderTo(const std::string& out, int frames, bool asks_early, bool asks_late)
{
    hvStartup();
    hvxLoadScene("./");
    hvSetCameraAOVName(0, 0, out.c_str());
    if (frames > 0) hvSetCameraSample(0, frames);
    hvSetPreviewWindow(asks_early);
    hvInitialize();
    hvSetPreviewWindow(asks_early || asks_late);
    hvRender();
}

void End()
{
    hvFinalize();
    hvShutdown();
}

int Run(const std::vector<std::string>& words)
{
    const std::string        mode = words[0];
    std::vector<std::string> outs;
    for (std::size_t i = 2; i < words.size() && i < 4; ++i) outs.push_back(std::filesystem::absolute(words[i]));
    std::filesystem::current_path(words[1]);  // geometry paths of a scene are relative to it

    if (mode == "go") {
        hvSetPreviewWindow(true);
        hvGo("./");
    } else if (mode == "twice" && outs.size() == 2) {
        for (const std::string& out : outs) {
            RenderTo(out, 0, true, false);
            End();
        }
    } else if (mode == "early" && words.size() == 4) {
        RenderTo(outs[0], std::atoi(words[3].c_str()), true, false);
    } else if (mode == "late" && outs.size() == 1) {
        RenderTo(outs[0], 0, false, true);
        End();
    } else if (mode == "stop" && words.size() == 5) {
        int wanted = std::atoi(words[4].c_str());
        hvxSetFrameCallback(StopAfter, &wanted);
        RenderTo(outs[0], std::atoi(words[3].c_str()), false, false);
        End();
    } else {
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count < 3) return EXIT_FAILURE;
    hvxSetSeed(1);
    return Run({arguments + 1, arguments + argument_count});
}
