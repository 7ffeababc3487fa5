// The component's About box: its fields, and showing it.
#pragma once

#include "runtime/desktop.h"

namespace veltrane::runtime {

// "About Veltrane"; the product's name "Veltrane"; the copyright line as the
// text "VER_COPYRIGHT_STR", which stands there unfilled; the project's web
// address; "Version <version> - <build date>", the date as the compiler
// gives it ("Jun 16 2026").
AboutBoxSpec AboutBoxTexts();

// Shows the About box modally with the active window as owner. When it
// cannot be shown the reason is traced at level 2; the caller goes on.
void ShowAboutBox();

}  // namespace veltrane::runtime
