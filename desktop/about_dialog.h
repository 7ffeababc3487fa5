// The About box: a modal dialog with the component's name, copyright line,
// web address and version, closed by OK or by closing the window. Its
// fields carry the numbers of their places as widget names ("209" the
// name, "211" the copyright, "212" the web address, "210" the version, "1"
// the OK button).
#pragma once

#include "runtime/desktop_module.h"

namespace veltrane::desktop {

void RunAboutDialog(const VeltraneAboutBox& box);

}  // namespace veltrane::desktop
