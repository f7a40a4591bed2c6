// The preview of builds without a window.

#include "session/console.h"
#include "session/preview.h"

namespace hv {

bool PreparePreview() { return true; }
bool IsPreviewRefused() { return false; }

bool RunPreview()
{
    PrintWarning("preview - this build has no window, frames run without it");
    return false;
}

void RefreshPreview() {}

}  // namespace hv
