"""The SOAP back end: SOAP over HTTP against the system's service sap/bc/soap/rfc."""

from urllib.parse import urlsplit

from ._backend_base import Backend, env, fill_logon, require_logon
from ._constants import constants
from ._errors import ABAPRuntimeError, CommunicationError, LogonError


class SoapBackend(Backend):
    """SOAP over HTTP against the system's service sap/bc/soap/rfc (class SoapSession)."""

    name = "soap"
    progid = "Veltrane.SoapSession"
    transactions = False
    parameters = frozenset({"host", "port", "endpoint", "url", "client", "user", "passwd", "lang", "stateful",
                            "trace", "proxy", "proxy_user", "proxy_passwd"})

    def open(self, params):
        self.check(params)
        host = params.get("host") or env("VELTRANE_HOST", "127.0.0.1")
        port = params.get("port") or env("VELTRANE_PORT", 8000)
        endpoint = params.get("endpoint") or "sap/bc/soap/rfc"
        if params.get("url"):
            parts = urlsplit(params["url"])
            if parts.scheme != "http" or not parts.hostname:
                raise ValueError(f"url {params['url']!r}: expected http://HOST[:PORT][/PATH]")
            host, port = parts.hostname, parts.port or 80
            endpoint = parts.path.strip("/") or endpoint
        require_logon(params)
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
                http.ProxyPassword = params.get("proxy_passwd") or env("VELTRANE_PROXY_PASSWORD", "")
        fill_logon(params, session)
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
