// Plain property access for Automation getters: a null out pointer is
// E_POINTER, strings and interfaces are handed out as copies the caller owns.
#pragma once

#include "platform/atlbase.h"

template <class T>
HRESULT GetProperty(const T& field, T* out) {
  if (!out) return E_POINTER;
  *out = field;
  return S_OK;
}

inline HRESULT GetProperty(const CComBSTR& field, BSTR* out) {
  if (!out) return E_POINTER;
  return field.CopyTo(out);
}

template <class Itf>
HRESULT GetProperty(const CComPtr<Itf>& field, Itf** out) {
  if (!out) return E_POINTER;
  return field.CopyTo(out);
}

inline HRESULT GetProperty(const CComVariant& field, VARIANT* out) {
  if (!out) return E_POINTER;
  VariantInit(out);
  return VariantCopy(out, &field);
}

// A plain setter: stores the value as given.
template <class T>
HRESULT PutProperty(T& field, T value) {
  field = value;
  return S_OK;
}

// A string setter: stores a copy, embedded NULs included; null stays null.
inline HRESULT PutProperty(CComBSTR& field, BSTR value) {
  BSTR copy = BstrCopy(value);
  if (value && !copy) return E_OUTOFMEMORY;
  field.Attach(copy);
  return S_OK;
}
