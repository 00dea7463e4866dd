"""The Tempvox control in a Python program.

    from tempvox import Tempvox

    with Tempvox(audio="default") as player:
        player.connect("PlayComplete", lambda: print("done"))
        player.SetPlayFilePath(None, -1, "lesson.wav")
        player.SetChangeSpeedLevel(-20)
        player.StartPlay()
        player.wait_for("PlayComplete", timeout_ms=60000)
        player.StopPlay()

Each member of the control is a method of the same name, with the control's
parameter names; SetLanguageType is a property. Events go to the callbacks
connected by name, with their arguments in the order the control names them.
Everything runs on the thread that made the control: events fire while it
pumps (pump, pump_for, wait_for, step).
"""

import ctypes
import os
from ctypes import byref, c_char_p, c_int32, c_uint32, c_void_p

from . import _abi
from ._registry import module_for


class TempvoxError(Exception):
    """A failed call of the control or its module, with its result code."""

    def __init__(self, hresult, message):
        super().__init__("%s (0x%08X)" % (message, hresult & 0xFFFFFFFF))
        self.hresult = hresult


def _check(hr, what):
    if hr < 0:
        raise TempvoxError(hr, what)
    return hr


def load_module(path):
    """Loads a module file and answers the ctypes library."""
    library = ctypes.CDLL(path, mode=os.RTLD_NOW | os.RTLD_LOCAL)
    library.DllGetClassObject.argtypes = [ctypes.POINTER(_abi.GUID), ctypes.POINTER(_abi.GUID),
                                          ctypes.POINTER(c_void_p)]
    library.DllGetClassObject.restype = _abi.HRESULT
    for name in ("DllCanUnloadNow", "DllRegisterServer", "DllUnregisterServer"):
        getattr(library, name).argtypes = []
        getattr(library, name).restype = _abi.HRESULT
    return library


def register(path):
    """Registers the module file `path` in the per-user registry."""
    _check(load_module(os.path.abspath(path)).DllRegisterServer(), "DllRegisterServer")


def unregister(path):
    """Removes the module file `path` from the per-user registry."""
    _check(load_module(os.path.abspath(path)).DllUnregisterServer(), "DllUnregisterServer")


class _Member:
    def __init__(self, desc):
        self.id = desc.memid
        self.name = desc.name.decode()
        self.invkind = desc.invkind
        self.result_type = desc.resultType
        self.param_names = [desc.paramNames[i].decode() for i in range(desc.paramCount)]
        self.param_types = [desc.paramTypes[i] for i in range(desc.paramCount)]


def _read_type_info(info):
    members = []
    count = c_uint32()
    _check(_abi.call(info, "GetFuncCount", byref(count)), "GetFuncCount")
    for index in range(count.value):
        desc = _abi.FUNCDESC()
        _check(_abi.call(info, "GetFuncDesc", index, byref(desc)), "GetFuncDesc")
        members.append(_Member(desc))
    _abi.call(info, "Release")
    return members


def _to_variant(value, vt, keep):
    """`value` as the member's parameter type; `keep` holds encoded strings
    alive for the call."""
    variant = _abi.VARIANT()
    variant.vt = vt
    if vt == _abi.VT_BSTR:
        if value is not None and not isinstance(value, (str, bytes, os.PathLike)):
            raise TypeError("expected a string or None, got %r" % (value,))
        if value is not None:
            text = os.fsencode(value) if not isinstance(value, bytes) else value
            buffer = ctypes.create_string_buffer(text)
            keep.append(buffer)
            variant.bstrVal = ctypes.addressof(buffer)
    elif isinstance(value, (str, bytes)):
        raise TypeError("expected a number, got %r" % (value,))
    elif vt == _abi.VT_R4:
        variant.fltVal = float(value)
    elif vt == _abi.VT_BOOL:
        variant.boolVal = 1 if value else 0
    elif vt == _abi.VT_I2:
        variant.iVal = int(value)
        if variant.iVal != int(value):
            raise OverflowError("%r does not fit a short" % (value,))
    elif vt == _abi.VT_I4:
        variant.lVal = int(value)
        if variant.lVal != int(value):
            raise OverflowError("%r does not fit a long" % (value,))
    return variant


def _from_variant(variant, owned):
    vt = variant.vt
    if vt == _abi.VT_BOOL:
        return bool(variant.boolVal)
    if vt == _abi.VT_I2:
        return variant.iVal
    if vt == _abi.VT_I4:
        return variant.lVal
    if vt == _abi.VT_R4:
        return variant.fltVal
    if vt == _abi.VT_BSTR:
        if not variant.bstrVal:
            return None
        text = ctypes.string_at(variant.bstrVal).decode("utf-8", "replace")
        if owned:
            _abi.free(variant.bstrVal)
        return text
    return None


class Tempvox:
    """One Tempvox control.

    module: a path to libtempvox.so to load directly; without it the
        control is found in the per-user registry by `progid` (or a braced
        class id), and failing that libtempvox.so is looked for where the
        dynamic loader looks.
    audio: the output device for play, "default", "alsa", "null", "manual"
        or "capture:FILE.wav"; process-wide, from the next start of play.
    """

    def __init__(self, module=None, progid=_abi.PROGID_CONTROL, audio=None):
        clsid = _abi.CLSID_Tempvox
        if module is None:
            found = module_for(progid)
            if found is not None:
                clsid = _abi.GUID.parse(found[0])
                module = found[1]
            elif progid != _abi.PROGID_CONTROL:
                raise TempvoxError(_abi.REGDB_E_CLASSNOTREG, "%s is not registered" % progid)
            else:
                module = os.environ.get("TEMPVOX_MODULE", "libtempvox.so")
        self._library = load_module(module)
        self._dispatch = None
        self._cookie = None
        self._handlers = {}
        self._callback_error = None

        factory = c_void_p()
        _check(self._library.DllGetClassObject(byref(clsid), byref(_abi.IID_ClassFactory), byref(factory)),
               "DllGetClassObject")
        factory = ctypes.cast(factory, _abi.IClassFactory)
        control = c_void_p()
        hr = _abi.call(factory, "CreateInstance", None, byref(_abi.IID_Dispatch), byref(control))
        _abi.call(factory, "Release")
        _check(hr, "CreateInstance")
        self._dispatch = ctypes.cast(control, _abi.IDispatch)
        self._services = _abi.query(self._dispatch, _abi.IID_HostServices, _abi.IHostServices)
        self._connection = _abi.query(self._dispatch, _abi.IID_ConnectionPoint, _abi.IConnectionPoint)
        self._ole = _abi.query(self._dispatch, _abi.IID_OleControl, _abi.IOleControl)

        info = _abi.ITypeInfo()
        _check(_abi.call(self._dispatch, "GetTypeInfo", 0, 0, byref(info)), "GetTypeInfo")
        self._members = {member.name: member for member in _read_type_info(info)}
        info = _abi.ITypeInfo()
        _check(_abi.call(self._connection, "GetEventTypeInfo", byref(info)), "GetEventTypeInfo")
        self._events = {event.id: event for event in _read_type_info(info)}

        # The callback object must live as long as the module may call it.
        self._sink_function = _abi.EVENT_FUNC(self._on_event)
        self._sink = _abi.EVENTSINK(self._sink_function, None)
        cookie = c_uint32()
        _check(_abi.call(self._connection, "Advise", byref(self._sink), byref(cookie)), "Advise")
        self._cookie = cookie.value

        for member in self._members.values():
            if member.invkind == _abi.DISPATCH_METHOD:
                setattr(self, member.name, self._bind(member))
        if audio is not None:
            self.set_audio_device(audio)

    # ------------------------------------------------------------ members

    @property
    def members(self):
        """The names of the control's members, in dispatch-id order."""
        return [m.name for m in sorted(self._members.values(), key=lambda m: m.id)]

    @property
    def events(self):
        """The names of the control's events, in id order."""
        return [self._events[i].name for i in sorted(self._events)]

    def _bind(self, member):
        def method(*args):
            if len(args) != len(member.param_names):
                raise TypeError("%s(%s) takes %d argument(s), got %d" % (
                    member.name, ", ".join(member.param_names), len(member.param_names), len(args)))
            return self._invoke(member, _abi.DISPATCH_METHOD, args, member.param_types)
        method.__name__ = member.name
        method.__doc__ = "%s(%s)" % (member.name, ", ".join(member.param_names))
        return method

    def _invoke(self, member, flags, args, types):
        if self._dispatch is None:
            raise TempvoxError(_abi.E_INVALIDARG, "the control is closed")
        keep = []
        variants = [_to_variant(value, vt, keep) for value, vt in zip(args, types)]
        reversed_args = (_abi.VARIANT * max(1, len(variants)))(*reversed(variants))
        named = c_int32(_abi.DISPID_PROPERTYPUT)
        params = _abi.DISPPARAMS(reversed_args, ctypes.pointer(named) if flags == _abi.DISPATCH_PROPERTYPUT else None,
                                 len(variants), 1 if flags == _abi.DISPATCH_PROPERTYPUT else 0)
        result = _abi.VARIANT()
        failure = _abi.EXCEPINFO()
        hr = _abi.call(self._dispatch, "Invoke", member.id, byref(_abi.IID_Unknown), 0, flags, byref(params),
                       byref(result), byref(failure), None)
        self._raise_callback_error()
        if hr < 0:
            raise TempvoxError(hr, failure.description.decode("utf-8", "replace") or member.name)
        return _from_variant(result, owned=True)

    @property
    def SetLanguageType(self):
        member = self._members["SetLanguageType"]
        return self._invoke(member, _abi.DISPATCH_PROPERTYGET, (), ())

    @SetLanguageType.setter
    def SetLanguageType(self, value):
        member = self._members["SetLanguageType"]
        self._invoke(member, _abi.DISPATCH_PROPERTYPUT, (value,), (member.result_type,))

    # ------------------------------------------------------------ events

    def connect(self, event, callback):
        """Calls `callback(*arguments)` whenever `event` fires."""
        if event not in self.events:
            raise ValueError("no event %r; the events are %s" % (event, ", ".join(self.events)))
        self._handlers.setdefault(event, []).append(callback)
        return callback

    def disconnect(self, event, callback):
        self._handlers.get(event, []).remove(callback)

    def _on_event(self, _context, dispid, params):
        event = self._events.get(dispid)
        if event is None:
            return
        count = params.contents.cArgs
        # Delivered last first: turned round into the order of the names.
        args = [_from_variant(params.contents.rgvarg[count - 1 - i], owned=False) for i in range(count)]
        for callback in list(self._handlers.get(event.name, [])):
            try:
                callback(*args)
            except BaseException as error:  # raised again from the pump, not lost inside ctypes
                if self._callback_error is None:
                    self._callback_error = error

    def _raise_callback_error(self):
        error, self._callback_error = self._callback_error, None
        if error is not None:
            raise error

    # ------------------------------------------------------------ the message loop

    def pump(self):
        """Delivers what is waiting for the control's thread; the number
        of messages and timers delivered."""
        delivered = _abi.call(self._services, "PumpMessages")
        self._raise_callback_error()
        return delivered

    def pump_for(self, ms):
        _abi.call(self._services, "PumpFor", int(ms))
        self._raise_callback_error()

    def wait_for(self, event, timeout_ms=0xFFFFFFFF):
        """Pumps until `event` fires; False when `timeout_ms` passed first."""
        dispid = next((i for i, e in self._events.items() if e.name == event), None)
        if dispid is None:
            raise ValueError("no event %r" % event)
        hr = _abi.call(self._services, "PumpUntilEvent", dispid, int(timeout_ms))
        self._raise_callback_error()
        return hr == _abi.S_OK

    def set_audio_device(self, device):
        _check(_abi.call(self._services, "SetAudioDevice", device.encode()), "unknown audio device %r" % device)

    def step(self, count=1):
        """On the manual device: completes up to `count` buffers, pumping
        after each; the number completed."""
        done = c_uint32()
        _abi.call(self._services, "StepDevice", int(count), byref(done))
        self._raise_callback_error()
        return done.value

    def queued_buffers(self):
        return _abi.call(self._services, "QueuedBuffers")

    # ------------------------------------------------------------ the embedded object

    @property
    def misc_status(self):
        value = c_uint32()
        _check(_abi.call(self._ole, "GetMiscStatus", 1, byref(value)), "GetMiscStatus")
        return value.value

    @property
    def control_flags(self):
        value = c_uint32()
        _check(_abi.call(self._ole, "GetControlFlags", byref(value)), "GetControlFlags")
        return value.value

    def draw(self):
        _abi.call(self._ole, "Draw")

    def show_window(self, show=True):
        _abi.call(self._ole, "ShowWindow", 1 if show else 0)

    @property
    def window_visible(self):
        value = c_int32()
        _abi.call(self._ole, "IsWindowVisible", byref(value))
        return bool(value.value)

    def save(self):
        """What a container stores of the control."""
        data = c_void_p()
        size = c_uint32()
        _check(_abi.call(self._ole, "Save", byref(data), byref(size)), "Save")
        stored = ctypes.string_at(data, size.value)
        _abi.free(data)
        return stored

    def load(self, stored):
        _check(_abi.call(self._ole, "Load", c_char_p(stored), len(stored)), "Load")

    # ------------------------------------------------------------ lifetime

    def close(self):
        """Disconnects the events and releases the control."""
        if self._dispatch is None:
            return
        if self._cookie is not None:
            _abi.call(self._connection, "Unadvise", self._cookie)
        for interface in (self._ole, self._connection, self._services, self._dispatch):
            if interface:
                _abi.call(interface, "Release")
        self._dispatch = self._services = self._connection = self._ole = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass
