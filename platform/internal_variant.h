// Helpers shared by the VARIANT and SAFEARRAY code.
#pragma once

#include "platform/oleauto.h"

namespace veltrane::platform::detail {

// S_OK when vt may stand in a VARIANT, else DISP_E_BADVARTYPE.
HRESULT ValidateVariantType(VARTYPE vt);
// Size of one element of a SAFEARRAY of vt; 0 when vt is not allowed there.
ULONG SafeArrayElementSize(VARTYPE vt);

}  // namespace veltrane::platform::detail
