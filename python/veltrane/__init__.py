"""Veltrane for Python.

The binding reaches every object of Veltrane late-bound, through IDispatch:

    session = veltrane.Dispatch("Veltrane.SoapSession")
    session.HttpSystemData.Port = 8000
    session.Option["trace.file"] = "/tmp/veltrane.trc"

with events (DispatchWithEvents, WithEvents, pump), the value mappings of
veltrane._veltrane and failures as ComError. The client (connect, Client) gives
function calls and table reads in Python's terms. docs/python.md has a tour.
"""

import atexit

from . import _veltrane
from ._constants import constants
from ._errors import (ABAPApplicationError, ABAPRuntimeError, ComError, CommunicationError, Error,
                      ExternalRuntimeError, LogonError, UnsupportedBackendError)
from ._events import DispatchWithEvents, WithEvents
from ._veltrane import (VT_ARRAY, VT_BOOL, VT_BSTR, VT_BYREF, VT_CY, VT_DATE, VT_DECIMAL, VT_DISPATCH, VT_EMPTY,
                        VT_ERROR, VT_I1, VT_I2, VT_I4, VT_I8, VT_INT, VT_NULL, VT_R4, VT_R8, VT_UI1, VT_UI2, VT_UI4,
                        VT_UI8, VT_UINT, VT_UNKNOWN, VT_VARIANT, BoundMember, Dispatch, EventConnection, Missing,
                        Unknown, Variant, apartment, initialize, pump)
from .client import (Client, FieldDescription, FunctionDescription, ParameterDescription, TypeDescription,
                     connect)
from ._tables import TableRead

__all__ = [
    "ABAPApplicationError", "ABAPRuntimeError", "BoundMember", "Client", "ComError", "CommunicationError",
    "Dispatch", "DispatchWithEvents", "Error", "EventConnection", "ExternalRuntimeError", "FieldDescription",
    "FunctionDescription", "LogonError", "Missing", "ParameterDescription", "TableRead", "TypeDescription",
    "Unknown", "UnsupportedBackendError", "Variant", "WithEvents", "apartment", "connect", "constants",
    "initialize", "pump",
]

# Hand-overs of events to the main thread end before the interpreter does.
atexit.register(_veltrane._shutdown)
