"""The back ends of veltrane.connect(): how connection parameters reach a session
object of the library, and how the failures it records become exceptions.

A back end names its session class, the parameters it takes, and two
operations: `open(params)` gives a connected session (a Dispatch), `error(info)`
turns the session's ErrorInfo into an exception. A back end whose session class
the library does not offer yet is refused with UnsupportedBackendError.
"""

import os
from urllib.parse import urlsplit

from ._constants import constants
from ._errors import (ABAPApplicationError, ABAPRuntimeError, CommunicationError, ComError, Error,
                      ExternalRuntimeError, LogonError, UnsupportedBackendError)
from ._veltrane import Dispatch

# Results of the library that say "the class is not there".
_CLASS_MISSING = {0x80040111, 0x80040154, 0x800401F3}  # CLASS_E_CLASSNOTAVAILABLE, REGDB_E_CLASSNOTREG, CO_E_CLASSSTRING


def error_from(info, backend):
    """The exception for an ErrorInfo (RfcError) that a session or table reader filled."""
    group, key, message, module = backend.error_fields(info.ERRORGROUP, info.ErrorGroupTxt, info.Message)
    module = module or info.ModuleName
    return backend.error_class(group, key, message)(message, key=key or None, group=group, module=module or None)


def _env(name, default=None):
    value = os.environ.get(name)
    return value if value else default


class Backend:
    name = None
    progid = None
    parameters = frozenset()

    def check(self, params):
        unknown = sorted(set(params) - self.parameters)
        if unknown:
            raise TypeError(f"the {self.name} back end takes no {', '.join(unknown)} "
                            f"(it takes {', '.join(sorted(self.parameters))})")

    def create_session(self):
        try:
            return Dispatch(self.progid)
        except ComError as e:
            if e.hresult in _CLASS_MISSING:
                raise UnsupportedBackendError(
                    f"back end '{self.name}': this Veltrane library does not offer {self.progid} yet") from e
            raise

    def error_fields(self, group, key, message):
        """(group, key, message, module) of a recorded failure."""
        return group, key, message, None

    def error_class(self, group, key, message):
        g = constants
        return {
            g.RFCERROR_APPLICATION_EXCEPTION: ABAPApplicationError,
            g.RFCERROR_LOGON_FAILURE: LogonError,
            g.RFCERROR_COMMUNICATION: CommunicationError,
            g.RFCERROR_PROTOCOL: CommunicationError,
            g.RFCERROR_SYSTEM_FAILURE: ABAPRuntimeError,
            g.RFCERROR_PROGRAM: ExternalRuntimeError,
            g.RFCERROR_INTERNAL: ExternalRuntimeError,
        }.get(group, Error)


class SoapBackend(Backend):
    """SOAP over HTTP against the system's service sap/bc/soap/rfc (class SoapSession)."""

    name = "soap"
    progid = "Veltrane.SoapSession"
    parameters = frozenset({"host", "port", "endpoint", "url", "client", "user", "passwd", "lang", "stateful",
                            "trace", "proxy", "proxy_user", "proxy_passwd"})

    def open(self, params):
        self.check(params)
        host = params.get("host") or _env("VELTRANE_HOST", "127.0.0.1")
        port = params.get("port") or _env("VELTRANE_PORT", 8000)
        endpoint = params.get("endpoint") or "sap/bc/soap/rfc"
        if params.get("url"):
            parts = urlsplit(params["url"])
            if parts.scheme != "http" or not parts.hostname:
                raise ValueError(f"url {params['url']!r}: expected http://HOST[:PORT][/PATH]")
            host, port = parts.hostname, parts.port or 80
            endpoint = parts.path.strip("/") or endpoint
        user = params.get("user") or _env("VELTRANE_USER")
        if not user:
            raise TypeError("no user: give user= or set VELTRANE_USER")
        passwd = params.get("passwd")
        if passwd is None:
            passwd = os.environ.get("VELTRANE_PASSWORD")
        if passwd is None:
            raise TypeError("no password: give passwd= or set VELTRANE_PASSWORD")

        session = self.create_session()
        if params.get("trace"):
            session.Option["trace.file"] = str(params["trace"])
        http = session.HttpSystemData
        http.Host = str(host)
        http.Port = int(port)
        http.SoapEndpoint = endpoint.strip("/")
        http.Stateful = bool(params.get("stateful", False))
        if params.get("proxy"):
            proxy_host, _, proxy_port = str(params["proxy"]).rpartition(":")
            if not proxy_host:
                proxy_host, proxy_port = proxy_port, ""
            http.ProxyHost = proxy_host
            if proxy_port:
                http.ProxyPort = int(proxy_port)
            if params.get("proxy_user"):
                http.ProxyUser = params["proxy_user"]
                http.ProxyPassword = params.get("proxy_passwd") or _env("VELTRANE_PROXY_PASSWORD", "")
        logon = session.LogonData
        logon.Client = str(params.get("client") or _env("VELTRANE_CLIENT", "001"))
        logon.User = user.upper()
        logon.Password = passwd
        logon.Language = str(params.get("lang") or _env("VELTRANE_LANG", "EN")).upper()
        return session

    def error_fields(self, group, key, message):
        # A fault of the system without an ABAP exception says "TYPE: message".
        if group == constants.RFCERROR_COMMUNICATION and not message and ": " in key:
            key, _, message = key.partition(": ")
        return group, key, message, None

    def error_class(self, group, key, message):
        g = constants
        # The service answers a refused logon with HTTP 401 or 403, which the
        # session reports as a SOAP_ERROR with the status.
        if group == g.RFCERROR_SYSTEM_FAILURE and key == "SOAP_ERROR":
            if message.startswith(("Server response status 401", "Server response status 403")):
                return LogonError
            return CommunicationError
        # A fault without an ABAP exception is the system's verdict on the call.
        if group == g.RFCERROR_COMMUNICATION:
            return ABAPRuntimeError
        return super().error_class(group, key, message)


class PlannedBackend(Backend):
    """A back end of the library that this client does not drive yet."""

    def __init__(self, name, progid, parameters):
        self.name, self.progid, self.parameters = name, progid, frozenset(parameters)

    def open(self, params):
        self.check(params)
        self.create_session()  # refused while the library has no such class
        raise UnsupportedBackendError(f"back end '{self.name}': the Python client cannot connect through it yet")


_RFC_PARAMETERS = {"dest", "ashost", "sysnr", "mshost", "msserv", "group", "gwhost", "gwserv", "client", "user",
                   "passwd", "lang", "trace", "config"}

BACKENDS = {
    "soap": SoapBackend(),
    "nwrfc": PlannedBackend("nwrfc", "Veltrane.NWRfcSession", _RFC_PARAMETERS),
    "rfc": PlannedBackend("rfc", "Veltrane.RfcSession", _RFC_PARAMETERS),
}


def backend_named(name):
    try:
        return BACKENDS[name]
    except KeyError:
        raise UnsupportedBackendError(f"unknown back end '{name}' (known: {', '.join(BACKENDS)})") from None
