// Veltrane: the public header. It declares the portable COM / OLE Automation
// layer (types, BSTR, VARIANT, SAFEARRAY, IUnknown, IDispatch, error records,
// apartments, activation, the registry and the registrar), the ATL-style
// helpers, the generated type library VELTRANELib (interfaces, enums, IIDs,
// CLSIDs), IRfcRowCells (a C++ interface of our own beside it), the
// component's error codes and texts, its version, and a base for the sinks
// of its events (CEventSink).
//
//   CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
//   CComPtr<ISoapSession> session;
//   CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER,
//                    IID_ISoapSession, reinterpret_cast<void**>(&session));
#pragma once

#include "veltrane/platform/wtypes.h"
#include "veltrane/platform/unknwn.h"
#include "veltrane/platform/oleauto.h"
#include "veltrane/platform/oaidl.h"
#include "veltrane/platform/objbase.h"
#include "veltrane/platform/atlbase.h"
#include "veltrane/platform/comdef.h"
#include "veltrane/platform/com_object.h"
#include "veltrane/platform/dispatch_impl.h"
#include "veltrane/platform/connection_point.h"
#include "veltrane/platform/typelib.h"
#include "veltrane/platform/winreg.h"
#include "veltrane/platform/registrar.h"
#include "veltrane/veltrane_tlb.h"
#include "veltrane/row_cells.h"
#include "veltrane/veltrane_errors.h"
#include "veltrane/veltrane_version.h"
#include "veltrane/module.h"
#include "veltrane/event_sink.h"
