"""veltrane.Client: function modules, interfaces and tables of an ABAP system in
Python's terms, on the late-bound object model.

    with veltrane.connect(host="127.0.0.1", port=8000, user="DEMO", passwd="...") as c:
        c.call("BAPI_FLIGHT_GETLIST", AIRLINE="LH")
        for row in c.read_table("SFLIGHT", fields=["CARRID", "FLDATE"], where="CARRID = 'LH'"):
            ...
"""

from dataclasses import dataclass, field
from typing import List, Optional

from . import _destinations as destinations
from ._backends import backend_named, error_from
from ._constants import constants
from ._errors import CommunicationError, ComError, Error, UnsupportedBackendError
from ._tables import TableRead
from ._veltrane import schema_of

_DIRECTIONS = ("Importing", "Exporting", "Changing", "Tables")


@dataclass
class TypeDescription:
    """A type of a parameter or field: `kind` is "scalar", "structure" or "table"."""

    name: str
    kind: str
    abap_type: Optional[str] = None  # "CHAR", "DATE", ... for a scalar
    length: int = 0
    decimals: int = 0
    fields: List["FieldDescription"] = field(default_factory=list)  # of a structure, or of a table's row


@dataclass
class FieldDescription:
    name: str
    type: TypeDescription


@dataclass
class ParameterDescription:
    name: str
    direction: str  # "importing", "exporting", "changing" or "tables"
    type: TypeDescription
    optional: bool
    default: str
    text: str


@dataclass
class FunctionDescription:
    name: str
    text: str
    parameters: List[ParameterDescription]
    xml: str  # the interface in the library's XML form (FunctionCall.ToXML)

    def parameter(self, name):
        for p in self.parameters:
            if p.name == name.upper():
                return p
        raise KeyError(name)


def _describe_type(rfc_type, depth=0):
    kind = rfc_type.Kind
    name = rfc_type.name or ""
    if kind == constants.RFCTYPEKIND_SCALAR:
        abap = constants.name_of("ABAPTYPE", rfc_type.ScalarType) or str(rfc_type.ScalarType)
        return TypeDescription(name, "scalar", abap.removeprefix("TYPE_"), rfc_type.ScalarLength,
                               rfc_type.ScalarDecimals)
    if depth > 64:
        raise ValueError(f"type {name} nested deeper than 64 levels")
    if kind == constants.RFCTYPEKIND_TABLE:
        row = _describe_type(rfc_type.RowType, depth + 1)
        return TypeDescription(name, "table", fields=row.fields)
    if kind in (constants.RFCTYPEKIND_STRUCT, constants.RFCTYPEKIND_COMPLEX_STRUCT):
        members = [FieldDescription(t.name, _describe_type(t, depth + 1)) for t in rfc_type.StructFields]
        return TypeDescription(name, "structure", fields=members)
    return TypeDescription(name, "undefined")


class Client:
    """A connection to an ABAP system. See veltrane.connect for the parameters."""

    def __init__(self, backend=None, *, rstrip=True, dest=None, dest_file=None, **params):
        if dest is not None or dest_file is not None:
            backend, params = _with_destination(backend, dest, dest_file, params)
        self._backend = backend_named(backend or "soap")
        self._rstrip = rstrip
        self._schemas = {}
        self._stale = False
        self._session = self._backend.open(params)
        try:
            self._session.Connect()
            failure = self._recorded(self._session.ErrorInfo) if self._session.Error else None
        except ComError as e:
            failure = self._failure(e)
            cause = e
        else:
            cause = None  # a refusal some sessions record without failing Connect
        if failure is not None:
            self._disconnect()
            raise failure from cause

    # -- the connection ---------------------------------------------------------------

    @property
    def backend(self):
        return self._backend.name

    @property
    def session(self):
        """The session object (a Dispatch), for everything the client does not cover."""
        return self._session

    @property
    def connected(self):
        return self._session is not None and self._session.IsConnected

    def close(self):
        """Ends the connection; later calls fail."""
        self._disconnect()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        state = "connected" if self.connected else "closed"
        return f"<veltrane.Client {self._backend.name} {state}>"

    def ping(self):
        """Calls RFC_PING."""
        self.call("RFC_PING")

    # -- function modules -------------------------------------------------------------

    def call(self, function, /, **parameters):
        """Calls a function module with its importing, changing and table parameters
        as keywords and returns its exporting, changing and table parameters in a
        dict, with typed values (see the module's documentation)."""
        name = function.upper()
        call = self._import(name)
        schemas = self._fill(call, name, parameters)
        self._run(call)
        result = {}
        for group in ("Exporting", "Changing", "Tables"):
            for p in getattr(call, group):
                result[p.name] = schemas[p.name].read(p, self._rstrip)
        return result

    # -- transactional RFC ------------------------------------------------------------

    def call_trfc(self, function, /, tid=None, confirm=True, **parameters):
        """Sends a function module as a transactional unit, which the system runs
        once however often it arrives under the same ID, and returns the ID.

        Without `tid` a new ID is created; pass the ID of an earlier attempt to send
        it again (after a failure whose exception carries it as `.tid`). With
        confirm=True (the default) the ID is confirmed once the unit was sent;
        confirm=False leaves that to confirm_tid(), so it can be sent again.
        Parameters go as for call(); the unit returns nothing. ABAP parameters
        named TID or CONFIRM are given in upper case."""
        if not self._backend.transactions:
            raise UnsupportedBackendError(f"back end '{self._backend.name}' has no transactional RFC "
                                          "(the library's session does not offer it)")
        name = function.upper()
        call = self._import(name)
        self._fill(call, name, parameters)
        if tid is None:
            tid = self.create_tid()
        try:
            try:
                self._session.CallTRFCFunction(str(tid), call)
            except ComError as e:
                raise self._failure(e) from e
            self._raise_recorded()
        except Error as e:
            e.tid = tid
            raise
        if confirm:
            self.confirm_tid(tid)
        return tid

    def create_tid(self):
        """A new transaction ID of this connection's session."""
        session = self._require()
        try:
            return session.CreateTransID()
        except ComError as e:
            raise self._failure(e) from e

    def confirm_tid(self, tid):
        """Confirms a transaction ID: the system may forget the unit sent under it."""
        session = self._require()
        try:
            session.ConfirmTransID(str(tid))
        except ComError as e:
            raise self._failure(e) from e
        self._raise_recorded()

    def describe(self, function):
        """The interface of a function module: its parameters with their types."""
        call = self._import(function.upper())
        parameters = []
        for group in _DIRECTIONS:
            for p in getattr(call, group):
                parameters.append(ParameterDescription(p.name, group.lower(), _describe_type(p.RfcType),
                                                       bool(p.Optional), p.DefaultValue or "", p.Description or ""))
        return FunctionDescription(call.Function, call.Documentation or "", parameters, call.ToXML())

    # -- tables -----------------------------------------------------------------------

    def read_table(self, table, fields=None, where=None, *, max_rows=0, skip=0, page_size=10000, raw=False):
        """Rows of a database table through RFC_READ_TABLE, as dicts, read lazily page
        by page (page_size rows per read; 0: all in one). `fields` is a list of names
        or "A,B,C" (default: all); `where` a condition in ABAP syntax, or a list of
        them joined with AND. Fields that do not fit one data line of RFC_READ_TABLE
        are read in several reads per page and joined by position. raw=True gives
        every field as untrimmed text."""
        return TableRead(self, table, fields, where, max_rows=max_rows, skip=skip, page_size=page_size, raw=raw)

    # -- inside -----------------------------------------------------------------------

    def _require(self):
        if self._session is None:
            raise CommunicationError("the client is closed", key="CLOSED")
        if self._stale:
            self._reconnect()
        return self._session

    def _reconnect(self):
        """Connects anew after a failure that closed the connection."""
        session = self._session
        try:
            session.Disconnect()
        except ComError:
            pass  # the old connection is gone either way
        try:
            session.Connect()
        except ComError as e:
            raise self._failure(e) from e
        self._raise_recorded()
        self._stale = False

    def _recorded(self, info):
        """The exception for an ErrorInfo of the session or a table reader; notes
        whether it closed the connection."""
        error = error_from(info, self._backend)
        if self._backend.closes_connection(error):
            self._stale = True
        return error

    def _failure(self, com_error):
        """The exception for a failed member: what ErrorInfo holds when the session
        recorded something, else the result itself as a communication failure."""
        session = self._session
        if session is not None and session.Error:
            return self._recorded(session.ErrorInfo)
        return self._backend.unrecorded_error(com_error)

    def _raise_recorded(self):
        if self._session.Error:
            raise self._recorded(self._session.ErrorInfo)

    def _import(self, name):
        session = self._require()
        if session.Error:
            session.ErrorInfo  # a failure nobody read: reading clears the flag
        try:
            call = session.ImportCall(name, self._backend.ignore_unsupported)
        except ComError as e:
            raise self._failure(e) from e
        # An import that the system refuses (an unknown module) is recorded, not failed.
        self._raise_recorded()
        return call

    def _run(self, call):
        try:
            self._session.CallFunction(call, True)
        except ComError as e:
            raise self._failure(e) from e
        self._raise_recorded()

    def _schemas_of(self, name, call):
        schemas = self._schemas.get(name)
        if schemas is None:
            schemas = {p.name: schema_of(p.RfcType, self._backend.signed_int1) for group in _DIRECTIONS for p in getattr(call, group)}
            self._schemas[name] = schemas
        return schemas

    def _fill(self, call, name, parameters):
        """Puts the keyword parameters into the call; returns the function's schemas."""
        schemas = self._schemas_of(name, call)
        for key, value in parameters.items():
            where = self._input_parameter(call, name, key.upper())
            schemas[key.upper()].write(where.Item(key.upper()), value, key.upper())
        return schemas

    @staticmethod
    def _input_parameter(call, function, key):
        for group in ("Importing", "Changing", "Tables"):
            params = getattr(call, group)
            if params.HasKey(key):
                return params
        names = [p.name for g in ("Importing", "Changing", "Tables") for p in getattr(call, g)]
        raise TypeError(f"{function} has no importing, changing or table parameter {key} "
                        f"(it has {', '.join(names) or 'none'})")

    def _disconnect(self):
        session, self._session = self._session, None
        if session is not None and session.IsConnected:
            try:
                session.Disconnect()
            except ComError:
                pass  # the connection is given up either way


def _with_destination(backend, dest, dest_file, params):
    """The back end and parameters with destination `dest` filled in where the
    call gives nothing."""
    if dest is None:
        raise TypeError("dest_file goes with dest=NAME")
    settings = destinations.settings(dest, dest_file)
    backend = backend or settings.pop("backend", None) or "soap"
    settings.pop("backend", None)
    if backend != "soap" and "host" in settings:  # as for the command: the host stands in for ashost
        host = settings.pop("host")
        if not ({"ashost", "sdk_dest", "connect"} & (set(settings) | set(params))):
            settings["ashost"] = host
    # Settings of another back end (a call that names its own) are left out.
    taken = backend_named(backend).parameters
    return backend, {**{k: v for k, v in settings.items() if k in taken}, **params}


def connect(backend=None, **params):
    """Connects to an ABAP system and returns a Client (a context manager).

    backend="soap" (the SOAP service over HTTP) takes:
        host, port, endpoint  where the service is (default 127.0.0.1, 8000, sap/bc/soap/rfc;
                              VELTRANE_HOST, VELTRANE_PORT), or url="http://host:port/path"
        client, user, passwd, lang   the logon (VELTRANE_CLIENT or 001, VELTRANE_USER,
                              VELTRANE_PASSWORD, VELTRANE_LANG or EN)
        stateful              one ABAP session for the whole connection
        trace                 file of the library's trace
        proxy, proxy_user, proxy_passwd   an HTTP proxy "host:port" (VELTRANE_PROXY_PASSWORD)
    backend="nwrfc" (the NW RFC SDK's libsapnwrfc.so) takes:
        ashost, sysnr | gwserv, or mshost, msserv, group, r3name, sysid; gwhost, saprouter
                              where the system is (default ashost VELTRANE_HOST or 127.0.0.1,
                              sysnr VELTRANE_SYSNR or 00, or gwserv VELTRANE_GWSERV)
        connect               more of the SDK's parameters, "NAME=VALUE ..." (dest=NAME of sapnwrfc.ini)
        ini                   the SDK's sapnwrfc.ini or its directory
        sdk                   the directory of libsapnwrfc.so (default: VELTRANE_NWRFC_SDK_DIR,
                              $SAPNWRFC_HOME/lib, the loader's search, /usr/local/sap/nwrfcsdk/lib,
                              Veltrane's own beside libveltrane.so)
        client, user, passwd, lang, trace   as for SOAP
    backend="rfc" (the classic RFC SDK's librfcum.so) takes the same but ini, msserv, sysid,
        saprouter; with tphost, tpname; sdk defaults to VELTRANE_RFC_SDK_DIR, the loader's
        search, Veltrane's own beside libveltrane.so.
    All back ends: rstrip=False keeps the trailing blanks of character fields; dest=NAME takes
    the connection settings of destination NAME from the veltrane command's destinations file
    ($XDG_CONFIG_HOME/veltrane/destinations.ini, or dest_file=PATH), the back end among them;
    what the call gives wins. backend defaults to the destination's, else "soap".
    """
    return Client(backend, **params)
