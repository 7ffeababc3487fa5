"""Veltrane for Python.

The binding reaches every object of Veltrane late-bound, through IDispatch:

    session = veltrane.Dispatch("Veltrane.SoapSession")
    session.HttpSystemData.Port = 8000
    session.Option["trace.file"] = "/tmp/veltrane.trc"

with events (DispatchWithEvents, WithEvents, pump), the value mappings of
veltrane._veltrane and failures as ComError. The client (connect, Client) gives
function calls and table reads in Python's terms, Server a registered server
whose calls Python functions answer. docs/python.md has a tour.
"""

import atexit

from . import _veltrane
from ._constants import constants
from ._errors import (ABAPApplicationError, ABAPRuntimeError, ComError, CommunicationError, Error,
                      ExternalRuntimeError, LogonError, UnsupportedBackendError)
from ._events import DispatchWithEvents, WithEvents
from ._veltrane import (BoundMember, Dispatch, EventConnection, Missing, Unknown, Variant, apartment, initialize,
                        pump)
from .client import (Client, FieldDescription, FunctionDescription, ParameterDescription, TypeDescription,
                     connect)
from ._tables import TableRead
from . import server
from .server import Server

__all__ = [
    "ABAPApplicationError", "ABAPRuntimeError", "BoundMember", "Client", "ComError", "CommunicationError",
    "Dispatch", "DispatchWithEvents", "Error", "EventConnection", "ExternalRuntimeError", "FieldDescription",
    "FunctionDescription", "LogonError", "Missing", "ParameterDescription", "Server", "TableRead", "TypeDescription",
    "Unknown", "UnsupportedBackendError", "Variant", "WithEvents", "apartment", "connect", "constants",
    "initialize", "pump",
]

# The VARIANT types, for Variant(vt, value): VT_I2, VT_BSTR, VT_ARRAY, VT_BYREF, ...
_variant_types = {name: getattr(_veltrane, name) for name in dir(_veltrane) if name.startswith("VT_")}
globals().update(_variant_types)
__all__ += sorted(_variant_types)

# At exit, after the servers still running are stopped (atexit runs the last
# registered first): only the exiting thread takes the GIL from then on, and
# hand-overs of events to the main thread end.
atexit.register(_veltrane._shutdown)
atexit.register(server._stop_all)
