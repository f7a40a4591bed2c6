#pragma once

#include "output/image.h"

#include <string>

/// Pictures decoded in a process of their own: one that crashes, hangs or takes too much memory costs that picture
/// alone.
namespace hv {

/// Limits of a child process, and whether there is one.
struct PictureChildSettings {
    bool on        = false;
    int  seconds   = 20;    ///< of processor time, and of the clock
    int  megabytes = 2048;  ///< beyond what the host's process has in use; the least default, see SetPictureChild
};

/// Set by the host at any time, kept across sessions.
extern PictureChildSettings PictureChild;

/// Values of 0 and below stand for the defaults: 20 s, and half of the memory of the machine, but 2048 MB at least.
void SetPictureChild(bool on, int seconds, int megabytes);

/// Fills an image from a file. Returns what is wrong in a few words; empty when the image is loaded.
using PictureDecoder = std::string (*)(Image& image, const std::string& path);

/// Runs `decode` in a forked child under the limits of PictureChild and takes over its image and its words. Whatever
/// becomes of the child, it is gone when this returns, and the image is loaded only if all of it arrived.
std::string DecodeInChild(Image& image, const std::string& path, PictureDecoder decode);

}  // namespace hv
