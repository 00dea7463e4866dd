"""The module's binary interface, as ctypes sees it (see tempvox/host.h)."""

import ctypes
from ctypes import (CFUNCTYPE, POINTER, Structure, Union, c_char, c_char_p, c_float, c_int16, c_int32, c_uint8,
                    c_uint16, c_uint32, c_void_p)
import re

HRESULT = c_int32

S_OK = 0
S_FALSE = 1


def _code(value):
    return value - (1 << 32) if value >= (1 << 31) else value


E_NOINTERFACE = _code(0x80004002)
E_INVALIDARG = _code(0x80070057)
REGDB_E_CLASSNOTREG = _code(0x80040154)
SELFREG_E_TYPELIB = _code(0x80040200)
SELFREG_E_CLASS = _code(0x80040201)
DISP_E_MEMBERNOTFOUND = _code(0x80020003)
DISP_E_TYPEMISMATCH = _code(0x80020005)
DISP_E_UNKNOWNNAME = _code(0x80020006)
DISP_E_EXCEPTION = _code(0x80020009)
DISP_E_OVERFLOW = _code(0x8002000A)
DISP_E_BADPARAMCOUNT = _code(0x8002000E)

VT_EMPTY, VT_I2, VT_I4, VT_R4, VT_BSTR, VT_BOOL = 0, 2, 3, 4, 8, 11

DISPATCH_METHOD, DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT = 1, 2, 4
DISPID_PROPERTYPUT = -3


class GUID(Structure):
    _fields_ = [("Data1", c_uint32), ("Data2", c_uint16), ("Data3", c_uint16), ("Data4", c_uint8 * 8)]

    _PATTERN = re.compile(r"^\{([0-9A-Fa-f]{8})-([0-9A-Fa-f]{4})-([0-9A-Fa-f]{4})-([0-9A-Fa-f]{4})-([0-9A-Fa-f]{12})\}$")

    @classmethod
    def parse(cls, text):
        match = cls._PATTERN.match(text.strip())
        if match is None:
            raise ValueError("not a class id: %r" % text)
        tail = bytes.fromhex(match.group(4) + match.group(5))
        return cls(int(match.group(1), 16), int(match.group(2), 16), int(match.group(3), 16),
                   (c_uint8 * 8)(*tail))

    def __str__(self):
        tail = bytes(self.Data4).hex().upper()
        return "{%08X-%04X-%04X-%s-%s}" % (self.Data1, self.Data2, self.Data3, tail[:4], tail[4:])

    def __eq__(self, other):
        return isinstance(other, GUID) and bytes(self) == bytes(other)

    def __hash__(self):
        return hash(bytes(self))


LIBID_TEMPVOXLib = GUID.parse("{0170D2BA-4417-46D7-8465-3167BC2CA253}")
CLSID_Tempvox = GUID.parse("{B7CA8608-6E21-40F3-860A-EC1D951A0686}")
DIID_DTempvox = GUID.parse("{BFBF270B-7053-4813-8DFB-41C5174FBF12}")
DIID_DTempvoxEvents = GUID.parse("{7DBE9E7F-AFF6-4F30-9198-8AB957C881CA}")
CLSID_TempvoxPropPage = GUID.parse("{3E4FBE6C-19D1-481D-9767-D53D0D36F3EC}")
IID_Unknown = GUID.parse("{00000000-0000-0000-C000-000000000046}")
IID_ClassFactory = GUID.parse("{00000001-0000-0000-C000-000000000046}")
IID_Dispatch = GUID.parse("{00020400-0000-0000-C000-000000000046}")
IID_TypeInfo = GUID.parse("{61340501-0C6D-4411-A631-BC716FF058F7}")
IID_ConnectionPoint = GUID.parse("{9B9E7780-E245-44DE-9DAC-888C7BD95BEC}")
IID_HostServices = GUID.parse("{082DA794-205E-4D64-B3D3-37454ACDCFCA}")
IID_OleControl = GUID.parse("{DB428DC1-14E0-4728-9B61-8E0E69C728DC}")

PROGID_CONTROL = "TEMPVOX.TempvoxCtrl.1"


class _Value(Union):
    _fields_ = [("iVal", c_int16), ("lVal", c_int32), ("fltVal", c_float), ("boolVal", c_int32),
                ("bstrVal", c_void_p)]


class VARIANT(Structure):
    _anonymous_ = ("value",)
    _fields_ = [("vt", c_uint16), ("reserved1", c_uint16), ("reserved2", c_uint16), ("reserved3", c_uint16),
                ("value", _Value)]


class DISPPARAMS(Structure):
    _fields_ = [("rgvarg", POINTER(VARIANT)), ("rgdispidNamedArgs", POINTER(c_int32)), ("cArgs", c_uint32),
                ("cNamedArgs", c_uint32)]


class EXCEPINFO(Structure):
    _fields_ = [("scode", HRESULT), ("description", c_char * 256)]


class FUNCDESC(Structure):
    _fields_ = [("memid", c_int32), ("name", c_char_p), ("invkind", c_uint16), ("resultType", c_uint16),
                ("paramCount", c_uint32), ("paramNames", POINTER(c_char_p)), ("paramTypes", POINTER(c_uint16))]


EVENT_FUNC = CFUNCTYPE(None, c_void_p, c_int32, POINTER(DISPPARAMS))


class EVENTSINK(Structure):
    _fields_ = [("OnEvent", EVENT_FUNC), ("context", c_void_p)]


class PAGEINFO(Structure):
    _fields_ = [("title", c_char_p), ("dialogId", c_int32), ("width", c_int32), ("height", c_int32)]


def _interface(name, methods):
    """A pointer type to an interface whose table holds QueryInterface,
    AddRef, Release and then `methods` as (name, result, argument types)."""
    table = type(name + "Vtbl", (Structure,), {})
    interface = type(name, (Structure,), {})
    pointer = POINTER(interface)
    interface._fields_ = [("lpVtbl", POINTER(table))]
    unknown = [("QueryInterface", HRESULT, [POINTER(GUID), POINTER(c_void_p)]),
               ("AddRef", c_uint32, []),
               ("Release", c_uint32, [])]
    table._fields_ = [(method, CFUNCTYPE(result, pointer, *arguments))
                      for method, result, arguments in unknown + methods]
    return pointer


ITypeInfo = _interface("ITempvoxTypeInfo", [
    ("GetGuid", HRESULT, [POINTER(GUID)]),
    ("GetName", HRESULT, [POINTER(c_char_p)]),
    ("GetFuncCount", HRESULT, [POINTER(c_uint32)]),
    ("GetFuncDesc", HRESULT, [c_uint32, POINTER(FUNCDESC)]),
])

IDispatch = _interface("ITempvoxDispatch", [
    ("GetTypeInfoCount", HRESULT, [POINTER(c_uint32)]),
    ("GetTypeInfo", HRESULT, [c_uint32, c_uint32, POINTER(ITypeInfo)]),
    ("GetIDsOfNames", HRESULT, [POINTER(GUID), POINTER(c_char_p), c_uint32, c_uint32, POINTER(c_int32)]),
    ("Invoke", HRESULT, [c_int32, POINTER(GUID), c_uint32, c_uint16, POINTER(DISPPARAMS), POINTER(VARIANT),
                         POINTER(EXCEPINFO), POINTER(c_uint32)]),
])

IConnectionPoint = _interface("ITempvoxConnectionPoint", [
    ("GetConnectionInterface", HRESULT, [POINTER(GUID)]),
    ("Advise", HRESULT, [POINTER(EVENTSINK), POINTER(c_uint32)]),
    ("Unadvise", HRESULT, [c_uint32]),
    ("GetEventTypeInfo", HRESULT, [POINTER(ITypeInfo)]),
])

IHostServices = _interface("ITempvoxHostServices", [
    ("PumpMessages", c_int32, []),
    ("PumpFor", HRESULT, [c_uint32]),
    ("PumpUntilEvent", HRESULT, [c_int32, c_uint32]),
    ("SetAudioDevice", HRESULT, [c_char_p]),
    ("StepDevice", HRESULT, [c_uint32, POINTER(c_uint32)]),
    ("QueuedBuffers", c_uint32, []),
])

IOleControl = _interface("ITempvoxOleControl", [
    ("GetClassID", HRESULT, [POINTER(GUID)]),
    ("GetUserTypeName", HRESULT, [POINTER(c_void_p)]),
    ("GetMiscStatus", HRESULT, [c_uint32, POINTER(c_uint32)]),
    ("GetControlFlags", HRESULT, [POINTER(c_uint32)]),
    ("GetPropertyPages", HRESULT, [POINTER(GUID), c_uint32, POINTER(c_uint32)]),
    ("DoVerb", HRESULT, [c_int32]),
    ("Draw", HRESULT, []),
    ("ShowWindow", HRESULT, [c_int32]),
    ("IsWindowVisible", HRESULT, [POINTER(c_int32)]),
    ("IsDirty", HRESULT, []),
    ("Save", HRESULT, [POINTER(c_void_p), POINTER(c_uint32)]),
    ("Load", HRESULT, [c_char_p, c_uint32]),
    ("ResetState", HRESULT, []),
])

IClassFactory = _interface("ITempvoxClassFactory", [
    ("CreateInstance", HRESULT, [c_void_p, POINTER(GUID), POINTER(c_void_p)]),
    ("LockServer", HRESULT, [c_int32]),
])


def call(pointer, method, *arguments):
    """Calls `method` of the interface `pointer`."""
    return getattr(pointer.contents.lpVtbl.contents, method)(pointer, *arguments)


def query(pointer, iid, kind):
    """The interface `iid` of the object behind `pointer`, as `kind`."""
    raw = c_void_p()
    hr = call(pointer, "QueryInterface", ctypes.byref(iid), ctypes.byref(raw))
    if hr != S_OK:
        return None
    return ctypes.cast(raw, kind)


_libc = ctypes.CDLL(None)
_libc.free.argtypes = [c_void_p]
_libc.free.restype = None


def free(address):
    """Frees memory the module allocated for the caller."""
    if address:
        _libc.free(address)
