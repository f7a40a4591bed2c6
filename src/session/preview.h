#pragma once

/// The window in which a render converges, asked for by Settings.PreviewWindow. A build without a window has the same
/// calls; it warns, and its frames run without.
namespace hv {

/// Whether a render that wants a window can have one, asked before any long work. If not, says why in one error line.
/// True where no window is wanted.
bool PreparePreview();

/// Whether the last PreparePreview failed: it has been told, and what it should have led to is missing.
bool IsPreviewRefused();

/// Opens a window on the film of the active camera and runs RenderFrame in it until it is closed, which writes the
/// beauty image as it stands. Returns false, and has run nothing, if there is no such window or nothing to show.
bool RunPreview();

/// Shows the beauty image as it stands and asks for the window to be drawn again. Without a window it does nothing.
void RefreshPreview();

}  // namespace hv
