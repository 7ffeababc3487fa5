// Metadata import through the dictionary functions of the ABAP system:
// function interfaces and structures are asked of the system itself, with
// RFC_GET_FUNCTION_INTERFACE, RFC_GET_UNICODE_STRUCTURE and RFC_GET_NAMETAB,
// run as ordinary calls on a session. It talks to the session through its
// public interface only, so any back end that can call those functions
// imports with it. The session frame's cached ImportCall and ImportType
// stand in front of it and call it on a cache miss.
#pragma once

#include "platform/oaidl.h"
#include "veltrane_tlb.h"

class MetadataImport {
 public:
  // session: the session the import runs on. Its IsConnected decides whether
  // an import may start; its CallFunction (synchronous) runs the dictionary
  // functions, a server-side failure being its Error, not a failing result;
  // its ImportType (the frame's, cached) gives the structures met on the way.
  // clsid: the class the error records name. traceName: the class as the
  // trace lines name it ("CSoapSession").
  MetadataImport(ISession* session, const CLSID& clsid, const char* traceName)
      : m_session(session), m_clsid(clsid), m_traceName(traceName) {}

  // ImportCallFromBackend: fills call (its Function is set by the caller)
  // with the parameters RFC_GET_FUNCTION_INTERFACE lists for name. Classes
  // other than C, E, I, T and complex parameters are left out;
  // ignoreUnsupportedParams is accepted and has no effect. A failing import
  // of a type ends the function with that result. Without a connection the
  // result is text 520.
  HRESULT Call(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) const;

  // ImportTypeFromBackend: defines type as the structure name through
  // RFC_GET_UNICODE_STRUCTURE (one-byte lengths and offsets). Exceptions end
  // in text 521.
  HRESULT Type(BSTR name, IRfcType* type) const;

  // ImportTableTypeFromBackend: defines type as the table type name whose
  // row structure RFC_GET_NAMETAB names in HEADER-REFNAME; an empty REFNAME
  // fails with text 521.
  HRESULT TableType(BSTR name, IRfcType* type) const;

 private:
  bool Connected() const;
  HRESULT NotConnected() const;
  HRESULT CallSteps(BSTR name, IFunctionCall* target) const;
  HRESULT TypeSteps(BSTR name, IRfcType* type) const;
  HRESULT Run(IFunctionCall* call) const { return m_session->CallFunction(call, VARIANT_TRUE); }
  HRESULT Structure(BSTR name, IRfcType** type) const { return m_session->ImportType(name, type); }

  ISession* m_session;
  const CLSID& m_clsid;
  const char* m_traceName;
};
