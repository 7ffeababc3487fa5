"""The binding's Dispatch: creation, attributes, properties with arguments,
methods with named, optional and [out] arguments, the default member,
iteration, dir() and ComError."""

import pytest

import veltrane
from conftest import configure

SOAP_SESSION_CLSID = "{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}"


def test_created_by_progid_versioned_progid_and_class_id():
    for source in ("Veltrane.SoapSession", "Veltrane.SoapSession.1", "veltrane.soapsession", SOAP_SESSION_CLSID):
        assert veltrane.Dispatch(source).SessionType == "SOAP"


def test_unknown_progid_raises_com_error():
    with pytest.raises(veltrane.ComError) as raised:
        veltrane.Dispatch("Veltrane.NoSuchThing")
    assert raised.value.hresult == 0x800401F3  # CO_E_CLASSSTRING
    assert "Veltrane.NoSuchThing" in str(raised.value)


def test_a_class_without_factory_is_not_created():
    with pytest.raises(veltrane.ComError) as raised:
        veltrane.Dispatch("Veltrane.RfcType")
    assert raised.value.hresult in (0x80040111, 0x80040154)


def test_another_dispatch_shares_the_object():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    t = veltrane.Dispatch(s)
    t.SystemID = "shared"
    assert s.SystemID == "shared" and s == t and hash(s) == hash(t)


def test_properties_read_and_write_with_names_in_any_case():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    s.systemid = "abc"
    assert s.SYSTEMID == "abc" and s.SystemID == "abc"
    http = s.HttpSystemData
    http.port = 8123
    assert http.Port == 8123 and isinstance(http.Port, int)
    http.Stateful = True
    assert http.Stateful is True


def test_a_read_only_property_cannot_be_set():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    with pytest.raises(AttributeError, match="cannot be set"):
        s.SessionType = "X"


def test_an_unknown_member_is_an_attribute_error():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    assert not hasattr(s, "NoSuchMember")
    with pytest.raises(AttributeError, match="ISoapSession.*NoSuchMember"):
        s.NoSuchMember
    with pytest.raises(AttributeError):
        s.NoSuchMember = 1  # a plain Dispatch has no attributes of its own


def test_property_with_arguments_reads_and_writes_by_index():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    assert s.Option["never.set"] == ""
    s.Option["my.key"] = "value 1"
    assert s.Option["my.key"] == "value 1"
    assert s.Option("my.key") == "value 1"
    assert s.Option["My.Key"] == ""  # option names are case-sensitive
    assert "BoundMember ISoapSession.Option" in repr(s.Option)


def test_methods_take_named_and_optional_arguments():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    assert s.DecodeInternalError(errcode=520) == "Not connected (call connect() before executing this method)"
    t = s.CreateType()
    t.DefineScalar("F", veltrane.constants.TYPE_CHAR, decimals=0, length=12)
    assert (t.name, t.ScalarLength, t.ScalarDecimals, t.StructOffset) == ("F", 12, 0, -1)
    u = s.CreateType()
    u.DefineScalar("G", veltrane.constants.TYPE_BCD, 8, veltrane.Missing, 4)  # a left-out argument in between
    assert (u.ScalarLength, u.ScalarDecimals, u.StructOffset) == (8, 0, 4)


def test_an_unknown_keyword_is_a_type_error():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    with pytest.raises(TypeError, match="unexpected keyword argument 'nope'"):
        s.DecodeInternalError(nope=1)


def test_bad_arguments_name_the_argument():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    with pytest.raises(veltrane.ComError) as raised:
        s.DecodeInternalError("not a number")
    assert raised.value.hresult == 0x80020005  # DISP_E_TYPEMISMATCH
    assert raised.value.argerr == 0
    with pytest.raises(veltrane.ComError) as raised:
        s.DecodeInternalError(1, 2)
    assert raised.value.hresult == 0x8002000E  # DISP_E_BADPARAMCOUNT


def test_com_error_carries_what_excepinfo_says():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    with pytest.raises(veltrane.ComError) as raised:
        s.Disconnect()
    e = raised.value
    assert e.hresult == 0x80040208
    assert e.description == "Not connected (call connect() before executing this method)"
    assert e.source == "Veltrane.SoapSession.1"
    assert isinstance(e.helpcontext, int)
    assert e.member == "Disconnect"
    assert str(e).startswith("Disconnect: 0x80040208: Not connected")


def test_out_parameters_come_back_as_a_tuple():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    call = s.CreateCall()
    call.RaiseException("NOT_FOUND", "nothing there")
    assert call.GetException() == ("NOT_FOUND", "nothing there")


def test_by_reference_variant_receives_the_value():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    call = s.CreateCall()
    call.RaiseException("FAILED")
    exception = veltrane.Variant(veltrane.VT_BYREF | veltrane.VT_BSTR, "")
    message = veltrane.Variant(veltrane.VT_BYREF | veltrane.VT_VARIANT)
    assert call.GetException(exception, message) is None
    assert exception.value == "FAILED" and message.value == ""


def test_default_member_by_call_and_index(session):
    call = session.ImportCall("STFC_CONNECTION")
    importing = call.Importing
    assert importing("REQUTEXT").name == "REQUTEXT"
    assert importing["REQUTEXT"].name == "REQUTEXT"
    assert importing[1].name == "REQUTEXT"
    parameter = importing["REQUTEXT"]
    parameter.value = "through the default member"
    assert parameter() == "through the default member"


def test_iteration_len_and_identity(session):
    call = session.ImportCall("STFC_CONNECTION")
    names = [p.name for p in call.Exporting]
    assert names == ["ECHOTEXT", "RESPTEXT"]
    assert len(call.Exporting) == 2
    first = call.Exporting[1]
    assert first == call.Exporting["ECHOTEXT"]
    assert first != call.Exporting[2]
    assert first.RfcType == call.Exporting["ECHOTEXT"].RfcType


def test_an_object_without_enumeration_is_not_iterable():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    with pytest.raises(TypeError, match="not iterable"):
        iter(s.LogonData)
    with pytest.raises(TypeError, match="no len"):
        len(s.LogonData)


def test_dir_lists_members_from_type_information():
    s = veltrane.Dispatch("Veltrane.SoapSession")
    names = dir(s)
    for member in ("Connect", "CallFunction", "HttpSystemData", "Option", "SessionType", "ImportCall"):
        assert member in names
    t = s.CreateType()
    assert "GetInternalObj" not in dir(t)  # hidden
    assert "_NewEnum" not in dir(s.CreateCall().Importing)  # restricted
    assert "DefineScalar" in dir(t)


def test_a_failed_connect_leaves_error_info(sim):
    s = configure(veltrane.Dispatch("Veltrane.SoapSession"), sim, password="wrong")
    with pytest.raises(veltrane.ComError) as raised:
        s.Connect()
    assert raised.value.hresult == 0x8004021F
    assert s.IsConnected is True  # the transport stays, as designed
    assert s.Error is True
    info = s.ErrorInfo
    assert s.Error is False
    assert info.ERRORGROUP == veltrane.constants.RFCERROR_SYSTEM_FAILURE
    assert "401" in info.Message
    with pytest.raises(veltrane.ComError) as again:
        s.Connect()
    assert again.value.hresult == 0x8004020B
    s.Disconnect()


def test_constants_come_from_the_type_library():
    c = veltrane.constants
    assert (c.TYPE_CHAR, c.TYPE_DATE, c.TYPE_XSTRING) == (0, 1, 30)
    assert c.RFCERROR_APPLICATION_EXCEPTION == 105
    assert c.RFCTYPEKIND_TABLE == 3
    assert c.name_of("ABAPTYPE", 8) == "TYPE_INT"
    assert set(c.enums) >= {"ABAPTYPE", "ERRORGROUP", "RFCTYPEKIND"}


def test_an_interface_without_dispatch_is_an_unknown(session):
    params = session.ImportCall("STFC_CONNECTION").Importing
    enumerator = params._NewEnum
    assert isinstance(enumerator, veltrane.Unknown)
    assert enumerator == enumerator and repr(enumerator) == "<veltrane.Unknown>"
    with pytest.raises(veltrane.ComError) as raised:
        veltrane.Dispatch(enumerator)
    assert raised.value.hresult == 0x80004002  # E_NOINTERFACE
    holder = session.CreateType()
    holder.Tag = enumerator  # passes back as VT_UNKNOWN
    assert holder.Tag == enumerator


def test_a_put_to_a_default_member_without_one_fails(session):
    params = session.ImportCall("STFC_CONNECTION").Importing
    with pytest.raises(veltrane.ComError) as raised:
        params["REQUTEXT"] = "x"
    assert raised.value.hresult == 0x80020003  # DISP_E_MEMBERNOTFOUND
