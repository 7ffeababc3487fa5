"""The back ends of veltrane.connect(), by name."""

from ._backend_base import error_from  # noqa: F401  (the client's and the table reader's)
from ._errors import UnsupportedBackendError
from ._sdk_backends import NwRfcBackend, RfcBackend
from ._soap_backend import SoapBackend

BACKENDS = {
    "soap": SoapBackend(),
    "nwrfc": NwRfcBackend(),
    "rfc": RfcBackend(),
}


def backend_named(name):
    try:
        return BACKENDS[name]
    except KeyError:
        raise UnsupportedBackendError(f"unknown back end '{name}' (known: {', '.join(BACKENDS)})") from None
