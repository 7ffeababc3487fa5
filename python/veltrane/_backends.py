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
    signed_int1 = False  # the session takes INT1 as a signed byte (VT_I1)
    transactions = True  # the session runs transactional RFC

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

    def closes_connection(self, error):
        """Whether the connection is gone after this failure (the next call connects anew)."""
        return False

    def unrecorded_error_class(self, hresult):
        """The exception for a failure the session did not record in ErrorInfo."""
        return CommunicationError

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
    transactions = False
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
        _require_logon(params)
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
        _logon(params, session)
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


def _pair(name, value):
    """NAME=VALUE for a connect string, quoted where the SDK's tokenizer would split it."""
    value = str(value)
    if not any(c in value for c in ' "\\'):
        return f"{name}={value}"
    return name + '="' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'


def _require_logon(params):
    """(user, password) from the parameters or the environment."""
    user = params.get("user") or _env("VELTRANE_USER")
    if not user:
        raise TypeError("no user: give user= or set VELTRANE_USER")
    passwd = params.get("passwd")
    if passwd is None:
        passwd = os.environ.get("VELTRANE_PASSWORD")
    if passwd is None:
        raise TypeError("no password: give passwd= or set VELTRANE_PASSWORD")
    return user, passwd


def _logon(params, session):
    user, passwd = _require_logon(params)
    logon = session.LogonData
    logon.Client = str(params.get("client") or _env("VELTRANE_CLIENT", "001"))
    logon.User = user.upper()
    logon.Password = passwd
    logon.Language = str(params.get("lang") or _env("VELTRANE_LANG", "EN")).upper()


class NwRfcBackend(Backend):
    """The NW RFC SDK's protocol (class NWRfcSession), through SAP's libsapnwrfc.so
    or Veltrane's own, which talks to veltrane-sim."""

    name = "nwrfc"
    progid = "Veltrane.NWRfcSession"
    signed_int1 = True
    # Where the system is, in the SDK's names; they go into the connect string as given.
    ADDRESS = ("ashost", "sysnr", "gwhost", "gwserv", "mshost", "msserv", "group", "r3name", "sysid", "saprouter")
    parameters = frozenset(ADDRESS + ("client", "user", "passwd", "lang", "trace", "connect", "ini", "sdk"))
    # The SDK's own failures, by the key it gives them; other runtime failures are the system's.
    SDK_KEYS = frozenset({
        "RFC_CLOSED", "RFC_CANCELED", "RFC_TIMEOUT", "RFC_MEMORY_INSUFFICIENT", "RFC_VERSION_MISMATCH",
        "RFC_INVALID_PROTOCOL", "RFC_SERIALIZATION_FAILURE", "RFC_INVALID_HANDLE", "RFC_EXTERNAL_FAILURE",
        "RFC_NOT_FOUND", "RFC_NOT_SUPPORTED", "RFC_ILLEGAL_STATE", "RFC_INVALID_PARAMETER",
        "RFC_CODEPAGE_CONVERSION_FAILURE", "RFC_CONVERSION_FAILURE", "RFC_BUFFER_TOO_SMALL", "RFC_UNKNOWN_ERROR",
        "RFC_START_SAPGUI_FAILURE", "RFC_CRYPTOLIB_FAILURE", "RFC_IO_FAILURE", "RFC_LOCKING_FAILURE",
        "RFC_AUTHENTICATION_FAILURE",
    })

    def connect_string(self, params):
        pairs = [_pair(name, params[name]) for name in self.ADDRESS if params.get(name) not in (None, "")]
        extra = str(params.get("connect") or "").strip()
        named = {p.split("=", 1)[0] for p in pairs} | {t.split("=", 1)[0].lower() for t in extra.split() if "=" in t}
        if not named & {"ashost", "mshost", "gwhost", "dest"}:
            pairs.insert(0, _pair("ashost", _env("VELTRANE_HOST", "127.0.0.1")))
            named.add("ashost")
        if "ashost" in named and not named & {"sysnr", "gwserv", "mshost", "dest"}:
            sysnr, gwserv = _env("VELTRANE_SYSNR"), _env("VELTRANE_GWSERV")
            pairs.append(_pair("gwserv", gwserv) if gwserv and not sysnr else _pair("sysnr", sysnr or "00"))
        sysnr = params.get("sysnr")
        if sysnr not in (None, "") and not (len(str(sysnr)) == 2 and str(sysnr).isdigit()):
            raise ValueError(f"sysnr {sysnr!r} is not a system number (two digits)")
        return " ".join(pairs + ([extra] if extra else []))

    def open(self, params):
        self.check(params)
        connect_string = self.connect_string(params)
        _require_logon(params)
        session = self.create_session()
        _logon(params, session)
        if params.get("trace"):
            session.Option["trace.file"] = str(params["trace"])
        directory = params.get("sdk") or find_nwrfc_sdk()
        if directory:
            session.Option["nwrfc.path"] = str(directory)
        if params.get("ini"):
            session.Option["nwrfc.ini_path"] = str(params["ini"])
        session.RfcSystemData.ConnectString = connect_string
        return session

    def error_class(self, group, key, message):
        if group == constants.RFCERROR_PROGRAM:
            return ExternalRuntimeError if key in self.SDK_KEYS else ABAPRuntimeError
        return super().error_class(group, key, message)

    def unrecorded_error_class(self, hresult):
        # The SDK records what the system or the way to it reports: the rest is this
        # side's (an SDK that cannot be loaded, an unknown transaction ID, ...).
        return ExternalRuntimeError

    def closes_connection(self, error):
        """Whether the SDK closed the connection with this failure: a runtime failure of
        the system, a lost connection, or a call on a handle it closed before."""
        return isinstance(error, (ABAPRuntimeError, CommunicationError)) or error.key == "RFC_INVALID_HANDLE"


_SDK_LIBRARY = "libsapnwrfc.so"


def _veltrane_library_dir():
    """The directory of the libveltrane.so this process loaded."""
    try:
        with open("/proc/self/maps") as maps:
            for line in maps:
                path = line.rstrip("\n").partition("/")[2]
                if path and os.path.basename("/" + path).startswith("libveltrane.so"):
                    return os.path.dirname("/" + path)
    except OSError:
        pass
    return None


def _loader_finds(name):
    """Whether the loader's own search finds the library (opened and closed again)."""
    import _ctypes
    try:
        handle = _ctypes.dlopen(name, os.RTLD_LAZY | os.RTLD_LOCAL)
    except OSError:
        return False
    _ctypes.dlclose(handle)
    return True


def find_nwrfc_sdk():
    """The directory of libsapnwrfc.so, as the veltrane command looks for it:
    $VELTRANE_NWRFC_SDK_DIR, $SAPNWRFC_HOME/lib, the loader's own search (None),
    /usr/local/sap/nwrfcsdk/lib, then Veltrane's own beside libveltrane.so."""
    explicit = _env("VELTRANE_NWRFC_SDK_DIR")
    if explicit:
        return explicit
    home = _env("SAPNWRFC_HOME")
    if home and os.path.isfile(os.path.join(home, "lib", _SDK_LIBRARY)):
        return os.path.join(home, "lib")
    if _loader_finds(_SDK_LIBRARY):
        return None
    usual = "/usr/local/sap/nwrfcsdk/lib"
    if os.path.isfile(os.path.join(usual, _SDK_LIBRARY)):
        return usual
    library = _veltrane_library_dir()
    if library:
        for own in (os.path.join(library, "veltrane", "nwrfcsdk"), os.path.join(library, "lib", "veltrane", "nwrfcsdk")):
            if os.path.isfile(os.path.join(own, _SDK_LIBRARY)):
                return os.path.realpath(own)
    return None


_RFC_PARAMETERS = {"dest", "ashost", "sysnr", "mshost", "msserv", "group", "gwhost", "gwserv", "client", "user",
                   "passwd", "lang", "trace", "config"}

BACKENDS = {
    "soap": SoapBackend(),
    "nwrfc": NwRfcBackend(),
    "rfc": PlannedBackend("rfc", "Veltrane.RfcSession", _RFC_PARAMETERS),
}


def backend_named(name):
    try:
        return BACKENDS[name]
    except KeyError:
        raise UnsupportedBackendError(f"unknown back end '{name}' (known: {', '.join(BACKENDS)})") from None
