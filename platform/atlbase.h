// Smart pointers and wrappers in the ATL style: CComPtr, CComQIPtr, CComBSTR,
// CComVariant, and the critical-section helpers.
#pragma once

#include "platform/objbase.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

template <class T>
class CComPtr {
 public:
  CComPtr() noexcept = default;
  CComPtr(T* p) noexcept : p(p) {
    if (p) p->AddRef();
  }
  CComPtr(const CComPtr& o) noexcept : CComPtr(o.p) {}
  CComPtr(CComPtr&& o) noexcept : p(std::exchange(o.p, nullptr)) {}
  ~CComPtr() { Release(); }

  CComPtr& operator=(T* q) noexcept {
    if (q != p) {
      if (q) q->AddRef();
      T* old = std::exchange(p, q);
      if (old) old->Release();
    }
    return *this;
  }
  CComPtr& operator=(const CComPtr& o) noexcept { return *this = o.p; }
  CComPtr& operator=(CComPtr&& o) noexcept {
    if (this != std::addressof(o)) {
      T* old = std::exchange(p, std::exchange(o.p, nullptr));
      if (old) old->Release();
    }
    return *this;
  }

  operator T*() const noexcept { return p; }
  T* operator->() const noexcept { return p; }
  T& operator*() const noexcept { return *p; }
  // The address for an [out] argument; the pointer must be empty.
  T** operator&() noexcept { return &p; }
  bool operator!() const noexcept { return p == nullptr; }
  bool operator==(const T* q) const noexcept { return p == q; }
  bool operator==(std::nullptr_t) const noexcept { return p == nullptr; }

  void Release() noexcept {
    T* old = std::exchange(p, nullptr);
    if (old) old->Release();
  }
  void Attach(T* q) noexcept {
    T* old = std::exchange(p, q);
    if (old) old->Release();
  }
  T* Detach() noexcept { return std::exchange(p, nullptr); }
  HRESULT CopyTo(T** pp) const noexcept {
    if (!pp) return E_POINTER;
    *pp = p;
    if (p) p->AddRef();
    return S_OK;
  }
  template <class Q>
  HRESULT QueryInterface(Q** pp) const noexcept {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (!p) return E_POINTER;
    return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
  }
  HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer = nullptr, DWORD ctx = CLSCTX_ALL) noexcept {
    Release();
    return ::CoCreateInstance(clsid, outer, ctx, __uuidof(T), reinterpret_cast<void**>(&p));
  }
  bool IsEqualObject(IUnknown* other) const noexcept {
    if (!p && !other) return true;
    if (!p || !other) return false;
    CComPtr<IUnknown> a, b;
    p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&a));
    other->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&b));
    return a.p == b.p;
  }

  T* p = nullptr;
};

template <class T>
class CComQIPtr : public CComPtr<T> {
 public:
  CComQIPtr() noexcept = default;
  CComQIPtr(T* q) noexcept : CComPtr<T>(q) {}
  CComQIPtr(IUnknown* unk) noexcept requires(!std::is_same_v<T, IUnknown>) {
    if (unk) unk->QueryInterface(__uuidof(T), reinterpret_cast<void**>(&this->p));
  }
  CComQIPtr& operator=(T* q) noexcept {
    CComPtr<T>::operator=(q);
    return *this;
  }
};

// A BSTR as a view of its characters, embedded NULs included; null reads as
// the empty text.
inline std::u16string_view BstrView(const OLECHAR* s) { return {s ? s : u"", SysStringLen(const_cast<BSTR>(s))}; }

// A copy of a BSTR, embedded NULs included; null stays null.
inline BSTR BstrCopy(const OLECHAR* s) { return s ? SysAllocStringLen(s, SysStringLen(const_cast<BSTR>(s))) : nullptr; }

class CComBSTR {
 public:
  CComBSTR() noexcept = default;
  CComBSTR(const OLECHAR* s) : m_str(SysAllocString(s)) {}
  CComBSTR(UINT len, const OLECHAR* s) : m_str(SysAllocStringLen(s, len)) {}
  CComBSTR(std::u16string_view s) : m_str(SysAllocStringLen(s.data(), static_cast<UINT>(s.size()))) {}
  CComBSTR(const CComBSTR& o) : m_str(o.Copy()) {}
  CComBSTR(CComBSTR&& o) noexcept : m_str(std::exchange(o.m_str, nullptr)) {}
  ~CComBSTR() { SysFreeString(m_str); }

  CComBSTR& operator=(const CComBSTR& o) {
    if (this != std::addressof(o)) Attach(o.Copy());
    return *this;
  }
  CComBSTR& operator=(CComBSTR&& o) noexcept {
    if (this != std::addressof(o)) Attach(std::exchange(o.m_str, nullptr));
    return *this;
  }
  CComBSTR& operator=(const OLECHAR* s) {
    Attach(SysAllocString(s));
    return *this;
  }

  operator BSTR() const noexcept { return m_str; }
  BSTR* operator&() noexcept { return &m_str; }
  bool operator!() const noexcept { return m_str == nullptr; }
  unsigned int Length() const noexcept { return SysStringLen(m_str); }
  unsigned int ByteLength() const noexcept { return SysStringByteLen(m_str); }
  std::u16string_view View() const noexcept { return BstrView(m_str); }

  BSTR Copy() const {
    if (!m_str) return nullptr;
    return SysAllocStringByteLen(reinterpret_cast<const char*>(m_str), SysStringByteLen(m_str));
  }
  HRESULT CopyTo(BSTR* pbstr) const {
    if (!pbstr) return E_POINTER;
    *pbstr = Copy();
    return (*pbstr || !m_str) ? S_OK : E_OUTOFMEMORY;
  }
  void Attach(BSTR s) noexcept {
    if (s != m_str) {
      SysFreeString(m_str);
      m_str = s;
    }
  }
  BSTR Detach() noexcept { return std::exchange(m_str, nullptr); }
  void Empty() noexcept { Attach(nullptr); }

  HRESULT Append(std::u16string_view s) {
    const UINT old = Length();
    BSTR joined = SysAllocStringLen(nullptr, old + static_cast<UINT>(s.size()));
    if (!joined) return E_OUTOFMEMORY;
    for (UINT i = 0; i < old; ++i) joined[i] = m_str[i];
    for (size_t i = 0; i < s.size(); ++i) joined[old + i] = s[i];
    Attach(joined);
    return S_OK;
  }
  CComBSTR& operator+=(std::u16string_view s) {
    Append(s);
    return *this;
  }
  bool operator==(std::u16string_view s) const noexcept { return View() == s; }
  bool operator==(const OLECHAR* s) const noexcept { return View() == std::u16string_view(s ? s : u""); }
  bool operator==(const CComBSTR& o) const noexcept { return View() == o.View(); }

  BSTR m_str = nullptr;
};

class CComVariant : public VARIANT {
 public:
  CComVariant() noexcept { VariantInit(this); }
  CComVariant(const VARIANT& v) {
    VariantInit(this);
    VariantCopy(this, &v);
  }
  CComVariant(const CComVariant& v) : CComVariant(static_cast<const VARIANT&>(v)) {}
  CComVariant(CComVariant&& v) noexcept {
    *static_cast<VARIANT*>(this) = v;
    v.vt = VT_EMPTY;
  }
  CComVariant(bool b) noexcept {
    VariantInit(this);
    vt = VT_BOOL;
    boolVal = b ? VARIANT_TRUE : VARIANT_FALSE;
  }
  CComVariant(LONG v, VARTYPE type = VT_I4) noexcept {
    VariantInit(this);
    vt = (type == VT_INT || type == VT_ERROR) ? type : VARTYPE(VT_I4);
    lVal = v;
  }
  CComVariant(SHORT v) noexcept {
    VariantInit(this);
    vt = VT_I2;
    iVal = v;
  }
  CComVariant(BYTE v) noexcept {
    VariantInit(this);
    vt = VT_UI1;
    bVal = v;
  }
  CComVariant(LONGLONG v) noexcept {
    VariantInit(this);
    vt = VT_I8;
    llVal = v;
  }
  CComVariant(double v, VARTYPE type = VT_R8) noexcept {
    VariantInit(this);
    vt = type == VT_DATE ? VT_DATE : VT_R8;
    dblVal = v;
  }
  CComVariant(float v) noexcept {
    VariantInit(this);
    vt = VT_R4;
    fltVal = v;
  }
  CComVariant(const OLECHAR* s) {
    VariantInit(this);
    vt = VT_BSTR;
    bstrVal = SysAllocString(s);
  }
  CComVariant(std::u16string_view s) {
    VariantInit(this);
    vt = VT_BSTR;
    bstrVal = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
  }
  CComVariant(const CComBSTR& s) {
    VariantInit(this);
    vt = VT_BSTR;
    bstrVal = s.Copy();
  }
  CComVariant(IDispatch* p) noexcept {
    VariantInit(this);
    vt = VT_DISPATCH;
    pdispVal = p;
    if (p) p->AddRef();
  }
  CComVariant(IUnknown* p) noexcept {
    VariantInit(this);
    vt = VT_UNKNOWN;
    punkVal = p;
    if (p) p->AddRef();
  }
  ~CComVariant() { VariantClear(this); }

  CComVariant& operator=(const CComVariant& v) {
    if (this != &v) Copy(&v);
    return *this;
  }
  CComVariant& operator=(CComVariant&& v) noexcept {
    if (this != &v) {
      VariantClear(this);
      *static_cast<VARIANT*>(this) = v;
      v.vt = VT_EMPTY;
    }
    return *this;
  }
  CComVariant& operator=(const VARIANT& v) {
    Copy(&v);
    return *this;
  }

  HRESULT Clear() { return VariantClear(this); }
  HRESULT Copy(const VARIANT* src) {
    if (src == this) return S_OK;
    VARIANT tmp;
    VariantInit(&tmp);
    HRESULT hr = VariantCopy(&tmp, src);
    if (FAILED(hr)) return hr;
    VariantClear(this);
    *static_cast<VARIANT*>(this) = tmp;
    return S_OK;
  }
  HRESULT CopyTo(VARIANT* dest) const {
    if (!dest) return E_POINTER;
    return VariantCopy(dest, this);
  }
  HRESULT Attach(VARIANT* src) {
    if (!src) return E_INVALIDARG;
    HRESULT hr = VariantClear(this);
    if (FAILED(hr)) return hr;
    *static_cast<VARIANT*>(this) = *src;
    src->vt = VT_EMPTY;
    return S_OK;
  }
  HRESULT Detach(VARIANT* dest) {
    if (!dest) return E_POINTER;
    HRESULT hr = VariantClear(dest);
    if (FAILED(hr)) return hr;
    *dest = *this;
    vt = VT_EMPTY;
    return S_OK;
  }
  HRESULT ChangeType(VARTYPE type, const VARIANT* src = nullptr) {
    return VariantChangeType(this, src ? src : this, 0, type);
  }
};

class CComCriticalSection {
 public:
  HRESULT Init() noexcept { return S_OK; }
  HRESULT Term() noexcept { return S_OK; }
  HRESULT Lock() {
    m_mutex.lock();
    return S_OK;
  }
  HRESULT Unlock() {
    m_mutex.unlock();
    return S_OK;
  }

 private:
  std::recursive_mutex m_mutex;
};
using CComAutoCriticalSection = CComCriticalSection;

template <class Lockable>
class CComCritSecLock {
 public:
  explicit CComCritSecLock(Lockable& cs, bool initialLock = true) : m_cs(cs) {
    if (initialLock) Lock();
  }
  ~CComCritSecLock() {
    if (m_locked) Unlock();
  }
  void Lock() {
    m_cs.Lock();
    m_locked = true;
  }
  void Unlock() {
    m_cs.Unlock();
    m_locked = false;
  }

 private:
  Lockable& m_cs;
  bool m_locked = false;
};
