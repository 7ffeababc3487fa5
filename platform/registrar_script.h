// The two passes of the registrar (registrar.h), for the registrar and its
// tests.
#pragma once

#include <string>
#include <string_view>

#include "platform/registrar.h"

namespace veltrane::platform::registrar {

// Replaces the variables of map (names compared without regard to ASCII
// case) and, with perUser, rewrites each root key HKCR outside quotes:
// "HKCR" becomes "HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses" and the brace
// that closes its block is followed by "\r\n\t}\r\n}\r\n". A quote doubled
// inside a quoted name stays doubled and the name goes on. DISP_E_EXCEPTION
// for a variable that map lacks or a "%" without its closing one.
HRESULT Preprocess(std::u16string_view script, const _ATL_REGMAP_ENTRY* map, bool perUser, std::u16string* out);

// Runs a preprocessed script against the registry, in the calling thread's
// registry transaction when one is open.
HRESULT Run(std::u16string_view script, bool doRegister);

}  // namespace veltrane::platform::registrar
