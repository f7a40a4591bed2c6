#pragma once

/// The stages that the driver itself owns, for hosts that drive them singly. The others are calls of the folders below.
namespace hv {

void InitializeCameras();
void InitializeAccelerator();

/// Writes the pictures of all cameras, last camera first, and destroys them.
void FinalizeCameras();
void FinalizeShaders();

/// Empties the photons and resets the settings.
void FinalizeRenderer();

}  // namespace hv
