"""The back ends on an SAP SDK loaded at run time: the NW RFC SDK (class
NWRfcSession, libsapnwrfc.so) and the classic RFC SDK (class RfcSession,
librfcum.so). Each takes where the system is in the SDK's own parameter names,
which go into the session's connect string, and finds the SDK's library as the
veltrane command does."""

import os

from ._backend_base import Backend, env, fill_logon, require_logon
from ._constants import constants
from ._errors import ABAPApplicationError, ABAPRuntimeError, CommunicationError, ExternalRuntimeError

_FUNCTION_NOT_FOUND = 0x8004021C  # text 540 "function module not found"


def _pair(name, value):
    """NAME=VALUE for a connect string, quoted where the SDK's tokenizer would split it."""
    value = str(value)
    if not any(c in value for c in ' "\\'):
        return f"{name}={value}"
    return name + '="' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'


def _veltrane_library_dir():
    """The directory of the libveltrane.so this process loaded."""
    try:
        with open("/proc/self/maps") as maps:
            for line in maps:
                path = "/" + line.rstrip("\n").partition("/")[2]
                if os.path.basename(path).startswith("libveltrane.so"):
                    return os.path.dirname(path)
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


class SdkBackend(Backend):
    """A back end on an SDK. A subclass names:

    LIBRARY       the SDK's library file
    PATH_OPTION   the session option that names its directory
    SDK_DIR_ENV   the environment variable that names it first
    HOME_DIRS     (environment variable, sub-directory) of SAP's installations
    USUAL_DIRS    directories SAP's SDK is usually unpacked to
    OWN_DIR       Veltrane's own library, under <libdir>/veltrane/
    ADDRESS       where the system is, in the SDK's names (lower case here); sdk_dest
                  names a destination of the SDK's own ini file
    UPPER_NAMES   whether the connect string writes names in upper case
    """

    LIBRARY = PATH_OPTION = SDK_DIR_ENV = OWN_DIR = None
    HOME_DIRS = USUAL_DIRS = ()
    ADDRESS = ("ashost", "sysnr", "gwhost", "gwserv", "mshost", "r3name", "group")
    UPPER_NAMES = False
    COMMON = ("client", "user", "passwd", "lang", "trace", "connect", "sdk", "sdk_dest")

    def find_sdk(self):
        """The directory of the SDK's library, in this order: the environment
        variable, SAP's installation, the loader's own search (None: the loader
        finds it), the usual directories, Veltrane's own beside libveltrane.so."""
        explicit = env(self.SDK_DIR_ENV)
        if explicit:
            return explicit
        for variable, sub in self.HOME_DIRS:
            home = env(variable)
            if home and os.path.isfile(os.path.join(home, sub, self.LIBRARY)):
                return os.path.join(home, sub)
        if _loader_finds(self.LIBRARY):
            return None
        for usual in self.USUAL_DIRS:
            if os.path.isfile(os.path.join(usual, self.LIBRARY)):
                return usual
        library = _veltrane_library_dir()
        if library:
            # installed: <prefix>/lib/veltrane/...; in a build tree: <build>/lib/veltrane/...
            for own in (os.path.join(library, "veltrane", self.OWN_DIR),
                        os.path.join(library, "lib", "veltrane", self.OWN_DIR)):
                if os.path.isfile(os.path.join(own, self.LIBRARY)):
                    return os.path.realpath(own)
        return None

    def name_in_string(self, name):
        return name.upper() if self.UPPER_NAMES else name

    def connect_string(self, params):
        """The connect string: the address parameters, with ashost (VELTRANE_HOST or
        127.0.0.1) and sysnr (VELTRANE_SYSNR or 00, or gwserv VELTRANE_GWSERV) where
        nothing else says where to go, then `connect` as written."""
        sysnr = params.get("sysnr")
        if sysnr not in (None, "") and not (len(str(sysnr)) == 2 and str(sysnr).isdigit()):
            raise ValueError(f"sysnr {sysnr!r} is not a system number (two digits)")
        given = [(name, params[name]) for name in self.ADDRESS if params.get(name) not in (None, "")]
        if params.get("sdk_dest"):
            given.insert(0, ("dest", params["sdk_dest"]))
        extra = str(params.get("connect") or "").strip()
        named = {name for name, _ in given} | {t.split("=", 1)[0].lower() for t in extra.split() if "=" in t}
        if not named & {"ashost", "mshost", "gwhost", "dest"}:
            given.insert(0, ("ashost", env("VELTRANE_HOST", "127.0.0.1")))
            named.add("ashost")
        if "ashost" in named and not named & {"sysnr", "gwserv", "mshost", "dest"}:
            sysnr, gwserv = env("VELTRANE_SYSNR"), env("VELTRANE_GWSERV")
            given.append(("gwserv", gwserv) if gwserv and not sysnr else ("sysnr", sysnr or "00"))
        pairs = [_pair(self.name_in_string(name), value) for name, value in given]
        return " ".join(pairs + ([extra] if extra else []) + self.more_pairs(params))

    def more_pairs(self, params):
        return []

    def open(self, params):
        self.check(params)
        connect_string = self.connect_string(params)
        require_logon(params)
        session = self.create_session()
        fill_logon(params, session)
        if params.get("trace"):
            session.Option["trace.file"] = str(params["trace"])
        directory = params.get("sdk") or self.find_sdk()
        if directory:
            session.Option[self.PATH_OPTION] = str(directory)
        self.set_options(params, session)
        session.RfcSystemData.ConnectString = connect_string
        return session

    def set_options(self, params, session):
        pass

    def unrecorded_error(self, com_error):
        # The SDK records what the system or the way to it reports: the rest is this
        # side's (an SDK that cannot be loaded, an unknown transaction ID, ...).
        return ExternalRuntimeError(com_error.description, key=f"0x{com_error.hresult:08X}")


class NwRfcBackend(SdkBackend):
    """The NW RFC SDK (class NWRfcSession), SAP's libsapnwrfc.so or Veltrane's own,
    which talks to veltrane-sim."""

    name = "nwrfc"
    progid = "Veltrane.NWRfcSession"
    signed_int1 = True
    LIBRARY = "libsapnwrfc.so"
    PATH_OPTION = "nwrfc.path"
    SDK_DIR_ENV = "VELTRANE_NWRFC_SDK_DIR"
    HOME_DIRS = (("SAPNWRFC_HOME", "lib"),)
    USUAL_DIRS = ("/usr/local/sap/nwrfcsdk/lib",)
    OWN_DIR = "nwrfcsdk"
    ADDRESS = ("ashost", "sysnr", "gwhost", "gwserv", "mshost", "msserv", "group", "r3name", "sysid", "saprouter")
    parameters = frozenset(ADDRESS + SdkBackend.COMMON + ("ini",))
    # The SDK's own failures, by the key it gives them; other runtime failures are the system's.
    SDK_KEYS = frozenset({
        "RFC_CLOSED", "RFC_CANCELED", "RFC_TIMEOUT", "RFC_MEMORY_INSUFFICIENT", "RFC_VERSION_MISMATCH",
        "RFC_INVALID_PROTOCOL", "RFC_SERIALIZATION_FAILURE", "RFC_INVALID_HANDLE", "RFC_EXTERNAL_FAILURE",
        "RFC_NOT_FOUND", "RFC_NOT_SUPPORTED", "RFC_ILLEGAL_STATE", "RFC_INVALID_PARAMETER",
        "RFC_CODEPAGE_CONVERSION_FAILURE", "RFC_CONVERSION_FAILURE", "RFC_BUFFER_TOO_SMALL", "RFC_UNKNOWN_ERROR",
        "RFC_START_SAPGUI_FAILURE", "RFC_CRYPTOLIB_FAILURE", "RFC_IO_FAILURE", "RFC_LOCKING_FAILURE",
        "RFC_AUTHENTICATION_FAILURE",
    })

    def set_options(self, params, session):
        if params.get("ini"):
            session.Option["nwrfc.ini_path"] = str(params["ini"])

    def error_class(self, group, key, message):
        if group == constants.RFCERROR_PROGRAM:
            return ExternalRuntimeError if key in self.SDK_KEYS else ABAPRuntimeError
        return super().error_class(group, key, message)

    def closes_connection(self, error):
        """The SDK closes the connection after a runtime failure of the system or a lost
        connection; a call on the closed handle fails with RFC_INVALID_HANDLE."""
        return isinstance(error, (ABAPRuntimeError, CommunicationError)) or error.key == "RFC_INVALID_HANDLE"


class RfcBackend(SdkBackend):
    """The classic RFC SDK (class RfcSession), its librfcum.so or Veltrane's own,
    which talks to veltrane-sim."""

    name = "rfc"
    progid = "Veltrane.RfcSession"
    LIBRARY = "librfcum.so"
    PATH_OPTION = "librfc.path"
    SDK_DIR_ENV = "VELTRANE_RFC_SDK_DIR"
    OWN_DIR = "rfcsdk"
    ADDRESS = ("ashost", "sysnr", "gwhost", "gwserv", "mshost", "r3name", "group", "tphost", "tpname")
    UPPER_NAMES = True
    parameters = frozenset(ADDRESS + SdkBackend.COMMON)
    # The classic SDK sends flat parameters only: a function's deep ones are left out.
    ignore_unsupported = True

    def more_pairs(self, params):
        # The SDK sends user and password in upper case unless told otherwise: the
        # client upper-cases the user itself and sends the password as given.
        extra = str(params.get("connect") or "").upper()
        return [] if "TOUPPER=" in extra else ["TOUPPER=0"]

    def error_fields(self, group, key, message):
        # The classic SDK names an ABAP exception in the message alone.
        if group == constants.RFCERROR_APPLICATION_EXCEPTION and not key:
            key = message
        return group, key, message, None

    def unrecorded_error(self, com_error):
        # An unknown function module fails the import of its interface unrecorded.
        if com_error.hresult == _FUNCTION_NOT_FOUND:
            return ABAPApplicationError("FU_NOT_FOUND", com_error.description)
        return super().unrecorded_error(com_error)

    def closes_connection(self, error):
        """The SDK closes the connection after a runtime failure of the system or a lost
        connection."""
        return isinstance(error, (ABAPRuntimeError, CommunicationError))
