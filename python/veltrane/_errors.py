"""The exceptions of Veltrane for Python.

ComError is the binding's: a member of an object failed. The others are the
client's (veltrane.Client): what the ABAP system or the way to it reported.
"""


class ComError(Exception):
    """A failed call into Veltrane.

    hresult      the result code, as an unsigned 32-bit number (0x80040208);
                 for a failure reported through EXCEPINFO, the code it carries
    description  what the object or the platform says about it
    source       ProgID of the class that reported it ("Veltrane.SoapSession.1"), or None
    helpfile, helpcontext  from EXCEPINFO
    argerr       the offending argument: its position, or its keyword, or None
    member       the member that was called, or None
    """

    def __init__(self, hresult, description="", source=None, helpfile=None, helpcontext=0, argerr=None, member=None):
        super().__init__(hresult, description)
        self.hresult = hresult
        self.description = description
        self.source = source
        self.helpfile = helpfile
        self.helpcontext = helpcontext
        self.argerr = argerr
        self.member = member

    def __str__(self):
        text = f"0x{self.hresult:08X}: {self.description}"
        if self.member:
            text = f"{self.member}: {text}"
        if self.source:
            text += f" (source {self.source})"
        if self.argerr is not None:
            text += f" (argument {self.argerr!r})"
        return text


class Error(Exception):
    """A failure that the ABAP system or the way to it reported.

    message  the text
    key      the short key: the ABAP exception's name, or the error group's text ("RFC_LOGON_FAILURE")
    group    the ERRORGROUP number (veltrane.constants.ERRORGROUP), or None
    module   where it happened, when the system says so
    tid      the transaction ID of a failed call_trfc, to send the unit again under it; else None
    """

    def __init__(self, message, key=None, group=None, module=None):
        super().__init__(message)
        self.message = message
        self.key = key
        self.group = group
        self.module = module
        self.tid = None

    def __str__(self):
        return f"{self.key}: {self.message}" if self.key else str(self.message)


class ABAPApplicationError(Error):
    """The function module raised an ABAP exception; `key` is its name. A handler
    of veltrane.Server raises one to answer with an ABAP exception:

        raise veltrane.ABAPApplicationError("NOT_FOUND", "no flight on that day")
    """

    def __init__(self, key, message="", group=None, module=None):
        super().__init__(message, key=key, group=group, module=module)


class ABAPRuntimeError(Error):
    """The system ended the call: a runtime error, an error message, an unknown module, a missing authorization."""


class LogonError(Error):
    """The system refused the logon."""


class CommunicationError(Error):
    """The system could not be reached, or its answer could not be read."""


class ExternalRuntimeError(Error):
    """The call could not be made on this side."""


class UnsupportedBackendError(Error, ValueError):
    """The back end named in connect() is not offered by this library or by this client yet."""
