#include "event_sink.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_map>

#include <text.h>

#include "apartment.h"
#include "com_error.h"
#include "dispatch_object.h"
#include "gil.h"
#include "type_members.h"
#include "variant_convert.h"

namespace vpy {

namespace {

// Hand-overs to other threads under way, so that exit can wait for them.
struct Handovers {
  std::mutex mutex;
  std::condition_variable idle;
  int running = 0;
  bool closed = false;
};
Handovers& handovers() {
  static Handovers* h = new Handovers();  // used by threads that may outlive static destruction
  return *h;
}

// An IDispatch without type information of its own: the event interface's,
// which the firing side has, describes it.
template <class Derived>
class UntypedDispatch : public CComObjectBase<Derived, IDispatch> {
 public:
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    if (info) *info = nullptr;
    return E_NOTIMPL;
  }
};

// The result a handler gave by raising ComError: its hresult when that is a
// failure, else E_FAIL.
HRESULT AnswerOf(py::handle error) {
  try {
    const auto code = static_cast<HRESULT>(error.attr("hresult").cast<uint32_t>());
    return FAILED(code) ? code : E_FAIL;
  } catch (py::error_already_set&) {
    return E_FAIL;
  } catch (const py::cast_error&) {
    return E_FAIL;
  }
}

// Calls the Python handler's On<Event> methods. Lives in the apartment that connected it.
class PythonHandler : public UntypedDispatch<PythonHandler> {
 public:
  void init(std::unordered_map<DISPID, std::string> events, py::object reference) {
    m_events = std::move(events);
    m_reference = std::move(reference);
  }
  ~PythonHandler() override {
    GilTaken gil;
    if (gil.held())
      m_reference.release().dec_ref();
    else
      m_reference.release();  // the interpreter is gone or going: nothing to give back
  }

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    if (!names || !ids || count == 0) return E_INVALIDARG;
    for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
    const std::string wanted = veltrane::cli::upperAscii(veltrane::cli::toUtf8(names[0]));
    for (const auto& [id, name] : m_events)
      if (veltrane::cli::upperAscii(name) == wanted) ids[0] = id;
    return ids[0] == DISPID_UNKNOWN || count > 1 ? DISP_E_UNKNOWNNAME : S_OK;
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO* info,
                                   UINT*) override {
    auto event = m_events.find(id);
    if (event == m_events.end()) return DISP_E_MEMBERNOTFOUND;
    GilTaken gil;
    if (!gil.held()) return S_OK;
    std::string failure;
    try {
      py::object target = m_reference;
      if (py::isinstance<py::weakref>(m_reference)) target = m_reference();
      if (target.is_none()) return S_OK;
      py::object method = py::getattr(target, ("On" + event->second).c_str(), py::none());
      if (method.is_none()) return S_OK;
      py::list args;
      const UINT count = params ? params->cArgs : 0;
      for (UINT i = count; i > 0; --i) args.append(FromVariant(params->rgvarg[i - 1]));
      try {
        py::object returned = method(*args);
        if (result && !returned.is_none()) ToVariant(returned, result);
        return S_OK;
      } catch (py::error_already_set& e) {
        // A ComError is the handler's answer: its failed result goes back to
        // the firing side as the result of Invoke, and nothing is reported.
        if (e.matches(ComErrorClass())) return AnswerOf(e.value());
        failure = e.what();
        e.discard_as_unraisable(method);
      }
    } catch (py::error_already_set& e) {
      failure = e.what();
      e.discard_as_unraisable(py::str("veltrane event " + event->second));
    } catch (const std::exception& e) {
      failure = e.what();
    }
    if (info) {
      *info = EXCEPINFO{};
      info->scode = E_FAIL;
      info->bstrSource = SysAllocString(u"Python");
      const std::u16string text = veltrane::cli::toUtf16(failure);
      info->bstrDescription = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    }
    return DISP_E_EXCEPTION;
  }

 private:
  std::unordered_map<DISPID, std::string> m_events;
  py::object m_reference;  // a weak reference to the handler, or the handler
};

// What the connection point holds: runs the handler directly on the thread of
// its apartment (or in the multithreaded apartment), and hands the event over
// to the connecting thread otherwise.
class EventSink : public UntypedDispatch<EventSink> {
 public:
  void init(const IID& events, CComPtr<PythonHandler> handler) {
    m_events = events;
    m_handler = std::move(handler);
    INT type = 0, qualifier = 0;
    m_singleThreaded = CoGetApartmentType(&type, &qualifier) == S_OK && type != APTTYPE_MTA;
    m_home = std::this_thread::get_id();
    if (m_singleThreaded) m_remote = RemoteHandler(m_handler);
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (ppv && riid == m_events) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    return UntypedDispatch::QueryInterface(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override {
    return m_handler->GetIDsOfNames(riid, names, count, lcid, ids);
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* info, UINT* argErr) override {
    if (!m_singleThreaded) return InvokeInMultithreadedApartment(id, riid, lcid, flags, params, result, info, argErr);
    if (std::this_thread::get_id() == m_home)
      return m_handler->Invoke(id, riid, lcid, flags, params, result, info, argErr);
    return HandOver(id, params);
  }

 private:
  HRESULT InvokeInMultithreadedApartment(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params,
                                         VARIANT* result, EXCEPINFO* info, UINT* argErr) {
    // A thread of the library that is in no apartment joins the multithreaded
    // one for the length of the handler.
    const HRESULT joined = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const HRESULT hr = m_handler->Invoke(id, riid, lcid, flags, params, result, info, argErr);
    if (SUCCEEDED(joined)) CoUninitialize();
    return hr;
  }

  // The handler as other apartments reach it: a proxy from the global interface
  // table, taken by a thread of the multithreaded apartment while this thread
  // pumps to answer it. Any thread may call through it; each call runs here.
  static CComPtr<IDispatch> RemoteHandler(IDispatch* handler) {
    CComPtr<IGlobalInterfaceTable> table;
    Check(CoGetGlobalInterfaceTable(&table), "reaching the global interface table");
    DWORD cookie = 0;
    Check(table->RegisterInterfaceInGlobal(handler, IID_IDispatch, &cookie), "registering an event handler");
    CComPtr<IDispatch> remote;
    std::atomic<bool> done{false};
    HRESULT hr = S_OK;
    {
      GilReleased released;
      std::thread taker([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        hr = table->GetInterfaceFromGlobal(cookie, IID_IDispatch, reinterpret_cast<void**>(&remote));
        CoUninitialize();
        done = true;
      });
      while (!done) CoPumpMessages(10);
      taker.join();
    }
    table->RevokeInterfaceFromGlobal(cookie);
    Check(hr, "reaching an event handler from other threads");
    return remote;
  }

  // Copies the arguments and lets a thread of its own wait until the
  // connecting thread runs the handler; the firing thread goes on at once.
  HRESULT HandOver(DISPID id, DISPPARAMS* params) {
    auto args = std::make_shared<std::vector<VARIANT>>(params ? params->cArgs : 0);
    for (size_t i = 0; i < args->size(); ++i) {
      VariantInit(&(*args)[i]);
      VariantCopyInd(&(*args)[i], &params->rgvarg[i]);
    }
    {
      std::lock_guard<std::mutex> lock(handovers().mutex);
      if (handovers().closed) {
        for (auto& v : *args) VariantClear(&v);
        return S_OK;
      }
      ++handovers().running;
    }
    CComPtr<IDispatch> remote = m_remote;
    std::thread([remote, id, args] {
      DISPPARAMS forwarded{args->data(), nullptr, static_cast<UINT>(args->size()), 0};
      EXCEPINFO info{};
      remote->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &forwarded, nullptr, &info, nullptr);
      SysFreeString(info.bstrSource);
      SysFreeString(info.bstrDescription);
      SysFreeString(info.bstrHelpFile);
      for (auto& v : *args) VariantClear(&v);
      std::lock_guard<std::mutex> lock(handovers().mutex);
      --handovers().running;
      handovers().idle.notify_all();
    }).detach();
    return S_OK;
  }

  IID m_events;
  CComPtr<PythonHandler> m_handler;
  bool m_singleThreaded = false;
  std::thread::id m_home;
  CComPtr<IDispatch> m_remote;  // single-threaded apartment: the handler for other threads
};

std::string TypeNameOf(IDispatch* source) {
  const auto members = MembersOf(source);
  return members ? members->typeName : "object";
}

}  // namespace

EventConnection::~EventConnection() { close(); }

void EventConnection::close() {
  auto links = std::move(m_links);
  m_links.clear();
  if (links.empty()) return;
  // Unadvise releases the sink, whose handler needs the GIL to let go of Python.
  GilReleased released;
  for (auto& [point, cookie] : links) point->Unadvise(cookie);
  links.clear();
}

std::unique_ptr<EventConnection> ConnectEvents(IDispatch* source, py::handle handler) {
  EnsureApartment();
  CComPtr<IConnectionPointContainer> container;
  if (FAILED(source->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container))) || !container)
    throw py::type_error("'" + TypeNameOf(source) + "' object raises no events");
  CComPtr<ITypeInfo> info;
  CComPtr<ITypeLib> library;
  UINT index = 0;
  Check(source->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), "reading the type information of the object");
  Check(info->GetContainingTypeLib(&library, &index), "reading the type library of the object");

  py::object reference;
  try {
    reference = py::weakref(handler);
  } catch (py::error_already_set&) {
    reference = py::reinterpret_borrow<py::object>(handler);  // no weak references: held strongly
  }
  auto connection = std::make_unique<EventConnection>();
  CComPtr<IEnumConnectionPoints> points;
  Check(container->EnumConnectionPoints(&points), "listing the event interfaces of the object");
  for (;;) {
    CComPtr<IConnectionPoint> point;
    ULONG fetched = 0;
    if (points->Next(1, &point, &fetched) != S_OK || fetched == 0) break;
    IID events{};
    Check(point->GetConnectionInterface(&events), "reading an event interface");
    CComPtr<ITypeInfo> eventInfo;
    Check(library->GetTypeInfoOfGuid(events, &eventInfo), "reading the type information of an event interface");
    CComPtr<PythonHandler> python;
    Check(PythonHandler::CreateInstance(&python.p), "creating an event handler");
    python->init(EventNames(eventInfo), reference);
    CComPtr<EventSink> sink;
    Check(EventSink::CreateInstance(&sink.p), "creating an event sink");
    sink->init(events, python);
    DWORD cookie = 0;
    HRESULT hr;
    {
      GilReleased released;
      hr = point->Advise(sink, &cookie);
    }
    Check(hr, "connecting to the events of " + TypeNameOf(source));
    connection->add(std::move(point), cookie);
  }
  if (!connection->connected()) throw py::type_error("'" + TypeNameOf(source) + "' object raises no events");
  return connection;
}

void ShutDownEvents() {
  {
    std::lock_guard<std::mutex> lock(handovers().mutex);
    handovers().closed = true;
  }
  EndThreadApartment();
  GilReleased released;
  std::unique_lock<std::mutex> lock(handovers().mutex);
  handovers().idle.wait_for(lock, std::chrono::seconds(2), [] { return handovers().running == 0; });
}

void RegisterEvents(py::module_& m) {
  py::class_<EventConnection>(m, "EventConnection",
                              "The link between an object's events and a Python handler; closed when it is\n"
                              "dropped or by close().")
      .def("close", &EventConnection::close)
      .def_property_readonly("connected", &EventConnection::connected);
  m.def(
      "_connect_events",
      [](py::handle source, py::handle handler) {
        IDispatch* dispatch = DispatchOf(source);
        if (!dispatch) throw py::type_error("events come from a veltrane.Dispatch");
        return ConnectEvents(dispatch, handler);
      },
      py::arg("source"), py::arg("handler"));
}

}  // namespace vpy
