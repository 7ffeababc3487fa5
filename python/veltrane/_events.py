"""Events: Python handlers connected to an object's event interfaces.

A handler is an instance of a class with methods named On<Event>, after the
events of the object's source interfaces as the type information lists them
(OnCallFinished for _SessionEvents). Events without a method are ignored.

A handler runs in the apartment of the thread that connected it: on that very
thread when the thread is a single-threaded apartment (the default), while it
pumps (veltrane.pump) or waits in a call that pumps; on the firing thread in
the multithreaded apartment. The connection lasts as long as the object that
DispatchWithEvents returns (or the handler that WithEvents returns), or until
its _veltrane_events.close().
"""

from . import _veltrane
from ._veltrane import Dispatch

_event_classes = {}


def _event_class(handler_class):
    cls = _event_classes.get(handler_class)
    if cls is None:
        cls = type(handler_class.__name__, (Dispatch, handler_class), {"__module__": handler_class.__module__})
        _event_classes[handler_class] = cls
    return cls


def _as_dispatch(source):
    return source if isinstance(source, Dispatch) else Dispatch(source)


def DispatchWithEvents(source, handler_class):
    """An object (created from a ProgID or class id, or an existing Dispatch) that is
    at once a Dispatch and an instance of handler_class, receiving its own events."""
    target = _as_dispatch(source)
    cls = _event_class(handler_class)
    obj = cls.__new__(cls)
    Dispatch.__init__(obj, target)
    if handler_class.__init__ is not object.__init__:
        handler_class.__init__(obj)
    object.__setattr__(obj, "_veltrane_events", _veltrane._connect_events(obj, obj))
    return obj


def WithEvents(source, handler_class):
    """A new instance of handler_class connected to the events of `source`, which stays
    as it is. Keep the handler: the connection ends with it."""
    target = _as_dispatch(source)
    handler = handler_class()
    handler._veltrane_events = _veltrane._connect_events(target, handler)
    return handler
