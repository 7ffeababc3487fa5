"""veltrane.Server: a registered RFC server whose calls Python functions answer.

    srv = veltrane.Server("nwrfc", program_id="PY_ORDERS", gwhost="sap.example.com", gwserv="sapgw00",
                          user="RFCUSER", passwd="...")

    @srv.function("Z_ORDER_CHECK")
    def check(IV_ORDER, **rest):
        if IV_ORDER == "0":
            raise veltrane.ABAPApplicationError("NOT_FOUND", "no order 0")
        return {"EV_STATUS": "OK"}

    srv.serve()  # until Ctrl+C or shutdown()

A handler gets the importing, changing and table values of the call as keyword
arguments, typed as Client.call returns them, and returns a dict (or None) of
exporting, changing and table values. ABAPApplicationError answers with that ABAP
exception; any other exception answers with a system failure, after which the
server registers again at once and serves on.
"""

import collections.abc
import logging
import os
import threading
import weakref

from ._backend_base import env
from ._backends import backend_named
from ._errors import (ABAPApplicationError, ComError, CommunicationError, ExternalRuntimeError,
                      UnsupportedBackendError)
from ._veltrane import Dispatch, _connect_events, pump, schema_of
from .client import Client

_log = logging.getLogger("veltrane.server")

_SERVER_CLASSES = {"nwrfc": "Veltrane.NWRfcServer", "rfc": "Veltrane.RfcServer"}
_SDK_MISSING = 0x80040223  # text 547: the SDK cannot be loaded
_E_FAIL = 0x80004005
_INPUT = ("Importing", "Changing", "Tables")
_OUTPUT = ("Exporting", "Changing", "Tables")
_PUMP_SECONDS = 0.1  # how soon the serving thread sees a stop
_RECONNECT_FIRST, _RECONNECT_MOST = 0.5, 30.0  # pause before registering again, doubling

# The calling thread is answering a call (a handler may call shutdown()).
_in_handler = threading.local()
# Servers running now, stopped at exit.
_running = weakref.WeakSet()


def _interface_call(name, interface):
    """A FunctionCall from the XML form of an interface: the text, a file, or a
    FunctionDescription of Client.describe."""
    xml = getattr(interface, "xml", None)
    if xml is None:
        if isinstance(interface, os.PathLike) or (isinstance(interface, str) and not interface.lstrip().startswith("<")):
            with open(interface, encoding="utf-8") as f:
                xml = f.read()
        elif isinstance(interface, str):
            xml = interface
        else:
            raise TypeError(f"interface of {name}: expects the XML form (text or file) or a FunctionDescription, "
                            f"not {type(interface).__name__}")
    call = Dispatch("Veltrane.SoapSession").CreateCall()  # a session makes calls, connected or not
    try:
        call.FromXML(xml)
    except ComError as e:
        raise ValueError(f"interface of {name}: not the XML form of an interface ({e.description})") from e
    if call.Function.upper() != name:
        raise ValueError(f"interface of {name}: it describes {call.Function}")
    return call


class _Function:
    """A served function: its handler, its interface, and the schemas of its parameters."""

    def __init__(self, name, handler, call):
        self.name = name
        self.handler = handler
        self.call = call  # the interface (a FunctionCall), or None until it is imported
        self.schemas = None

    def prepare(self, signed_int1):
        self.schemas = {p.name: schema_of(p.RfcType, signed_int1) for group in _INPUT + ("Exporting",)
                        for p in getattr(self.call, group)}

    def read(self, fn, rstrip):
        values = {}
        for group in _INPUT:
            for p in getattr(fn, group):
                values[p.name] = self.schemas[p.name].read(p, rstrip)
        return values

    def write(self, fn, result):
        if result is None:
            return
        if not isinstance(result, collections.abc.Mapping):
            raise TypeError(f"the handler of {self.name} returned {type(result).__name__}, not a dict of "
                            "exporting, changing and table values")
        for key, value in result.items():
            name = str(key).upper()
            for group in _OUTPUT:
                parameters = getattr(fn, group)
                if parameters.HasKey(name):
                    self.schemas[name].write(parameters.Item(name), value, name)
                    break
            else:
                names = [p.name for group in _OUTPUT for p in getattr(fn, group)]
                raise TypeError(f"{self.name} has no exporting, changing or table parameter {name} "
                                f"(it has {', '.join(names) or 'none'})")


class _Events:
    """The sink of the library's server: its events call back into the Server."""

    def __init__(self, server):
        self._server = server

    def OnIncomingCall(self, fn):
        failure = self._server._answer(fn)
        if failure is not None:
            _system_failure(fn, failure)

    def OnServerError(self, info):
        self._server._lost(info)

    def OnTransactionCheck(self, info):
        info.Status = 0  # every transaction runs: no record of IDs is kept

    def OnTransactionCommit(self, info):
        info.Status = 0


class Server:
    """A registered RFC server (see the module's documentation).

    backend      "nwrfc" (NWRfcServer on libsapnwrfc.so) or "rfc" (RfcServer on librfcum.so)
    program_id   the program ID registered at the gateway
    gwhost       the gateway's host (default: ashost, VELTRANE_HOST, 127.0.0.1)
    gwserv       the gateway's service (default: sapgw<sysnr>, VELTRANE_GWSERV, sapgw00)
    client       a veltrane.Client whose system describes the functions; or, as a text, the
                 logon client of the connection that the server opens for that itself from
                 the other keywords (those of veltrane.connect for the back end: ashost, sysnr,
                 user, passwd, ...; without an address of its own it goes to the gateway's)
    sdk, ini, trace  the SDK's directory, its ini file (nwrfc), the library's trace file
    reconnect    register again, after a pause that doubles up to 30 s, when the gateway
                 connection is lost (default True)
    rstrip       False keeps the trailing blanks of character values
    """

    def __init__(self, backend="nwrfc", *, program_id, gwhost=None, gwserv=None, client=None, reconnect=True,
                 rstrip=True, **connection):
        if backend not in _SERVER_CLASSES:
            raise UnsupportedBackendError(f"no registered server on back end '{backend}' "
                                          f"(servers: {', '.join(_SERVER_CLASSES)})")
        self._backend = backend_named(backend)
        if client is not None and not isinstance(client, Client):
            connection["client"] = client
            client = None
        if client is not None and client.backend != backend:
            # Each back end describes types in its own lengths, which its server takes.
            raise ValueError(f"the interfaces of a {backend} server come over a {backend} client, "
                             f"not {client.backend}")
        self._backend.check(connection)
        if not program_id:
            raise ValueError("program_id is empty")
        self.program_id = str(program_id)
        self.gwhost = str(gwhost or connection.get("ashost") or env("VELTRANE_HOST", "127.0.0.1"))
        sysnr = connection.get("sysnr") or (None if env("VELTRANE_GWSERV") else env("VELTRANE_SYSNR"))
        self.gwserv = str(gwserv or (f"sapgw{sysnr}" if sysnr else env("VELTRANE_GWSERV", "sapgw00")))
        self._gwserv_given = gwserv is not None
        self._dictionary = client
        self._connection = connection
        self._reconnect = reconnect
        self._rstrip = rstrip
        self._functions = {}
        self._server = None
        self._events = None
        self._thread = None  # the thread that serves
        self._started = None  # the thread of start()
        self._stop = threading.Event()
        self._done = threading.Event()
        self._done.set()
        self._pause = _RECONNECT_FIRST
        self._failed_call = False  # the connection's end that follows is expected
        self._lock = threading.Lock()

    # -- functions --------------------------------------------------------------------

    def function(self, name, interface=None):
        """A decorator that makes a function the handler of calls of `name`:

            @srv.function("Z_FOO")
            def foo(IV_TEXT, **rest): return {"EV_TEXT": IV_TEXT}

        The interface comes from the system when the server starts, or from `interface`:
        its XML form (text or file, as `veltrane describe` prints it) or a
        FunctionDescription of Client.describe."""
        name = str(name).upper()
        call = _interface_call(name, interface) if interface is not None else None

        def register(handler):
            if not callable(handler):
                raise TypeError(f"the handler of {name} is not callable")
            with self._lock:
                if self._thread is not None:
                    raise RuntimeError("functions are added before the server starts")
                self._functions[name] = _Function(name, handler, call)
            return handler

        return register

    @property
    def functions(self):
        """The names of the served functions."""
        return sorted(self._functions)

    # -- running ----------------------------------------------------------------------

    @property
    def running(self):
        return self._thread is not None

    @property
    def listening(self):
        """Whether the server is registered at the gateway now."""
        server = self._server
        return bool(server is not None and server.IsListening)

    def serve(self):
        """Registers and answers calls on this thread until shutdown() or Ctrl+C."""
        self._begin(threading.current_thread())
        try:
            self._open()
            self._loop()
        except KeyboardInterrupt:
            _log.info("%s: interrupted", self.program_id)
        finally:
            self._finish()

    def start(self):
        """Registers and answers calls on a thread of its own; returns once the server
        is registered, or raises what kept it from registering."""
        ready = threading.Event()
        failure = []

        def run():
            try:
                self._open()
            except BaseException as e:
                failure.append(e)
                self._finish()
                return
            finally:
                ready.set()
            try:
                self._loop()
            finally:
                self._finish()

        thread = threading.Thread(target=run, name=f"veltrane.Server {self.program_id}", daemon=True)
        self._begin(thread)
        self._started = thread
        thread.start()
        ready.wait()
        if failure:
            thread.join()
            raise failure[0]

    def shutdown(self):
        """Stops the server and waits until it has stopped: a call being answered is
        answered first. From a handler it only asks for the stop, which follows when
        the handler has returned. Without a running server it does nothing."""
        self._stop.set()
        thread = self._thread
        if thread is None or thread is threading.current_thread() or getattr(_in_handler, "active", False):
            return
        self._done.wait()
        if thread is self._started:
            thread.join()  # start()'s thread has let go of the library's objects too

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.shutdown()

    def __repr__(self):
        state = "listening" if self.listening else "running" if self.running else "stopped"
        return f"<veltrane.Server {self._backend.name} {self.program_id} at {self.gwhost}/{self.gwserv} {state}>"

    # -- inside: the serving thread ---------------------------------------------------

    def _begin(self, thread):
        with self._lock:
            if self._thread is not None:
                raise RuntimeError("the server is running")
            if not self._functions:
                raise RuntimeError("no function to serve: add one with @server.function(NAME)")
            self._thread = thread
            self._stop.clear()
            self._done.clear()
            self._pause = _RECONNECT_FIRST
            self._failed_call = False

    def _end(self):
        with self._lock:
            self._thread = None
            self._done.set()

    def _interfaces(self):
        """Imports the interfaces that were not given, over the dictionary connection."""
        missing = [f for f in self._functions.values() if f.call is None]
        if missing:
            client, own = self._dictionary, None
            if client is None:
                client = own = Client(self._backend.name, **self._dictionary_params())
            try:
                for f in missing:
                    f.call = client._import(f.name)
            finally:
                if own is not None:
                    own.close()
        for f in self._functions.values():
            f.prepare(self._backend.signed_int1)

    def _dictionary_params(self):
        """The connection for the interfaces: the keywords, at the gateway's address
        unless they name one of their own."""
        params = dict(self._connection)
        if not {"ashost", "mshost", "sdk_dest", "connect"} & params.keys():
            params["ashost"] = self.gwhost
            if not {"sysnr", "gwserv"} & params.keys() and self._gwserv_given:
                params["gwserv"] = self.gwserv
        return params

    def _open(self):
        """Makes the library's server, registers it and connects the events."""
        self._interfaces()
        server = Dispatch(_SERVER_CLASSES[self._backend.name])
        params = self._connection
        directory = params.get("sdk") or self._backend.find_sdk()
        if directory:
            server.Option[self._backend.PATH_OPTION] = str(directory)
        if params.get("ini"):
            server.Option["nwrfc.ini_path"] = str(params["ini"])
        if params.get("trace"):
            server.Option["trace.file"] = str(params["trace"])
        server.ProgramID = self.program_id
        server.GatewayHost = self.gwhost
        server.GatewayService = self.gwserv
        for f in self._functions.values():
            server.InstallFunction(f.call)
        handler = _Events(self)
        events = _connect_events(server, handler)
        try:
            server.Serve()
        except ComError as e:
            events.close()
            raise self._registration_failure(server, e) from e
        self._server, self._events, self._handler = server, events, handler
        if not server.IsListening:
            raise self._registration_failure(server, None)
        _running.add(self)
        _log.info("%s registered at %s/%s", self.program_id, self.gwhost, self.gwserv)

    def _registration_failure(self, server, com_error):
        where = f"registering {self.program_id} at {self.gwhost}/{self.gwserv}"
        if com_error is not None and com_error.hresult == _SDK_MISSING:
            return ExternalRuntimeError(f"{where}: {com_error.description}", key=f"0x{com_error.hresult:08X}")
        info = server.ErrorInfo
        message = info.Message or (com_error.description if com_error is not None else "the server is not listening")
        return CommunicationError(f"{where}: {message}", key=info.ErrorGroupTxt or None, group=info.ERRORGROUP)

    def _loop(self):
        while not self._stop.is_set():
            pump(_PUMP_SECONDS)

    def _finish(self):
        """Stops the library's server from another thread while this one answers what
        is still on its way, then lets go of it."""
        server, events = self._server, self._events
        if server is None:
            self._end()
            return
        stopped = threading.Event()

        def stop():
            try:
                server.Shutdown()
            finally:
                stopped.set()

        threading.Thread(target=stop, name=f"veltrane.Server {self.program_id} stop").start()
        while not stopped.is_set():
            try:
                pump(_PUMP_SECONDS)
            except KeyboardInterrupt:
                pass  # stopping already
        events.close()
        # The last references go before the stop is told: the release of the
        # library's server blocks, and a thread may not block at the interpreter's exit.
        del server, events
        self._server = self._events = self._handler = None
        _running.discard(self)
        _log.info("%s stopped", self.program_id)
        self._end()

    # -- inside: the events -----------------------------------------------------------

    def _answer(self, fn):
        """Answers a call; what fails it (a text), or None."""
        _in_handler.active = True
        try:
            name = fn.Function
            function = self._functions.get(name.upper())
            if function is None:
                _log.error("%s: a call of %s, which is not served here", self.program_id, name)
                return self._failed(f"{name} is not served by {self.program_id}")
            try:
                result = function.handler(**function.read(fn, self._rstrip))
                function.write(fn, result)
            except ABAPApplicationError as e:
                if not e.key:  # an exception without a name would be no exception
                    _log.error("%s: the handler of %s raised ABAPApplicationError without a key", self.program_id, name)
                    return self._failed(f"{name}: ABAPApplicationError without a key")
                fn.RaiseException(str(e.key), str(e.message or ""))
            except KeyboardInterrupt:
                self._stop.set()
                return self._failed(f"{self.program_id} was interrupted")
            except Exception as e:
                _log.error("%s: the handler of %s failed", self.program_id, name, exc_info=True)
                return self._failed(f"{type(e).__name__}: {e}")
            return None
        finally:
            _in_handler.active = False

    def _failed(self, text):
        # The SDK ends the connection after a failed call: register again at once.
        self._failed_call = True
        return text

    def _lost(self, info):
        """The gateway connection is lost: register again after a pause, unless stopping."""
        failed_call, self._failed_call = self._failed_call, False
        if failed_call:
            _log.info("%s: the gateway connection ended after a failed call", self.program_id)
        else:
            _log.warning("%s: the gateway connection ended: %s", self.program_id, info.Message)
        try:
            stopping = self._stop.is_set() if failed_call else not self._reconnect or self._stop.wait(self._pause)
        except KeyboardInterrupt:
            stopping = True
        if stopping:
            info.Restart = False
            self._stop.set()  # the library's server has ended: so does serving
            return
        if not failed_call:
            self._pause = min(self._pause * 2, _RECONNECT_MOST)
        _log.info("%s: registering again", self.program_id)
        info.Restart = True


def _system_failure(fn, text):
    """Makes the library's server answer the call with a system failure
    (docs/server.md): NWRfcServer fails the call of a failed handler (a failed
    Invoke); RfcServer absorbs that and fails a call whose answer it cannot send,
    here one with a parameter without a type. Either SDK then ends the connection."""
    fn.Exporting.AddParameter("SYSTEM_FAILURE", None)
    raise ComError(_E_FAIL, text)


def _stop_all():
    """At exit, before the apartments end: stops the servers still running."""
    for server in list(_running):
        server.shutdown()
