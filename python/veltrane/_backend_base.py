"""What every back end of veltrane.connect() shares: how connection parameters
reach a session object of the library, and how the failures it records become
exceptions.

A back end names its session class, the parameters it takes, and operations:
`open(params)` gives a session ready to connect (a Dispatch), `error_class`
chooses the exception for a failure the session recorded in ErrorInfo,
`closes_connection` tells whether the connection is gone after it.
"""

import os

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
    return backend.error_class(group, key, message)(message=message, key=key or None, group=group,
                                                    module=module or None)


def env(name, default=None):
    """An environment variable; unset and empty give the default."""
    value = os.environ.get(name)
    return value if value else default


class Backend:
    name = None
    progid = None
    parameters = frozenset()
    signed_int1 = False  # the session takes INT1 as a signed byte (VT_I1)
    transactions = True  # the session runs transactional RFC
    ignore_unsupported = False  # import interfaces without the parameters the session cannot send

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

    def unrecorded_error(self, com_error):
        """The exception for a failed member whose failure the session did not record
        in ErrorInfo: over HTTP, a system that cannot be reached."""
        return CommunicationError(com_error.description, key=f"0x{com_error.hresult:08X}")

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


def require_logon(params):
    """(user, password) from the parameters or the environment."""
    user = params.get("user") or env("VELTRANE_USER")
    if not user:
        raise TypeError("no user: give user= or set VELTRANE_USER")
    passwd = params.get("passwd")
    if passwd is None:
        passwd = os.environ.get("VELTRANE_PASSWORD")
    if passwd is None:
        raise TypeError("no password: give passwd= or set VELTRANE_PASSWORD")
    return user, passwd


def fill_logon(params, session):
    user, passwd = require_logon(params)
    logon = session.LogonData
    logon.Client = str(params.get("client") or env("VELTRANE_CLIENT", "001"))
    logon.User = user.upper()
    logon.Password = passwd
    logon.Language = str(params.get("lang") or env("VELTRANE_LANG", "EN")).upper()


