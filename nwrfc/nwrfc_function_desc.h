// A function description for the SDK from an object-model call: the NW
// server hands it to the gateway for a function the client installed, in
// its description callback. The parameters go in by CNWRFCField
// (nwrfc_field.h), group by group.
#pragma once

#include "nwrfc/nwrfc_library.h"
#include "nwrfc/nwrfc_types.h"
#include "veltrane_tlb.h"

// Creates the description named by the call's Function and adds Importing
// (RFC_IMPORT), Exporting (RFC_EXPORT), Changing (RFC_CHANGING) and Tables
// (RFC_TABLES), in this order, stopping at the first failure. A failed
// RfcCreateFunctionDesc traces "RFC Error #..." and gives text 543.
HRESULT NWRFCCreateFunctionDesc(const veltrane::nwrfc::EntryPoints& sdk, IFunctionCall* call, RFC_ERROR_INFO* errorInfo,
                                RFC_FUNCTION_DESC_HANDLE* functionDesc, const CLSID& clsid);

// Adds each parameter of one group, with its Optional flag, Description and
// DefaultValue. A failed model call or description traces its result at
// level 1 and ends the loop with it; a failed RfcAddParameter traces
// "RFC Error #..." and gives text 543.
HRESULT NWRFCAddParameters(const veltrane::nwrfc::EntryPoints& sdk, IRfcParameters* parameters, RFC_DIRECTION direction,
                           RFC_FUNCTION_DESC_HANDLE functionDesc, RFC_ERROR_INFO* errorInfo, const CLSID& clsid);
