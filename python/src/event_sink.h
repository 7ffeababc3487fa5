// Events of an object delivered to a Python handler. The handler's methods are
// named after the events of the object's source interfaces, as the type
// information lists them: On<Event>, such as OnCallFinished.
//
// A handler runs in the apartment of the thread that connected it. For a
// single-threaded apartment that is the thread itself: an event fired on
// another thread (the SOAP session fires CallFinished on its transport's
// worker) is handed over through the global interface table and runs when the
// thread pumps (veltrane.pump); the firing thread does not wait for it. In the
// multithreaded apartment the handler runs on the firing thread.
#pragma once

#include "common.h"

#include <utility>
#include <vector>

namespace vpy {

class EventConnection {
 public:
  EventConnection() = default;
  ~EventConnection();
  EventConnection(const EventConnection&) = delete;
  EventConnection& operator=(const EventConnection&) = delete;

  void add(CComPtr<IConnectionPoint> point, DWORD cookie) { m_links.emplace_back(std::move(point), cookie); }
  // Disconnects the handler; later calls do nothing.
  void close();
  bool connected() const { return !m_links.empty(); }

 private:
  std::vector<std::pair<CComPtr<IConnectionPoint>, DWORD>> m_links;
};

// Connects `handler` (held by a weak reference when it allows one) to every
// event interface of the object.
std::unique_ptr<EventConnection> ConnectEvents(IDispatch* source, py::handle handler);

// At interpreter exit: no new hand-overs, the main thread's apartment ends,
// and hand-overs under way are given a moment to finish.
void ShutDownEvents();

void RegisterEvents(py::module_& m);

}  // namespace vpy
