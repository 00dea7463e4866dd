"""The ctypes mirror of tempvox/host.h holds the same binary interface as the
header itself: a C compiler reads the header and tells every structure's
size, every field's offset, every interface table's order, the error codes
and the identities; the Python side must agree on each."""

import ctypes
import os
import pathlib
import shutil
import subprocess

import pytest

from tempvox import _abi

HEADER_DIR = pathlib.Path(__file__).resolve().parents[2] / "include"

# Python structure -> (C type, [(Python field, C field)]).
STRUCTURES = {
    _abi.GUID: ("TempvoxGuid", [("Data1", "Data1"), ("Data2", "Data2"), ("Data3", "Data3"), ("Data4", "Data4")]),
    _abi.VARIANT: ("TempvoxVariant", [("vt", "vt"), ("reserved1", "reserved1"), ("reserved2", "reserved2"),
                                      ("reserved3", "reserved3"), ("iVal", "iVal"), ("lVal", "lVal"),
                                      ("fltVal", "fltVal"), ("boolVal", "boolVal"), ("bstrVal", "bstrVal")]),
    _abi.DISPPARAMS: ("TempvoxDispParams", [("rgvarg", "rgvarg"), ("rgdispidNamedArgs", "rgdispidNamedArgs"),
                                            ("cArgs", "cArgs"), ("cNamedArgs", "cNamedArgs")]),
    _abi.EXCEPINFO: ("TempvoxExcepInfo", [("scode", "scode"), ("description", "description")]),
    _abi.FUNCDESC: ("TempvoxFuncDesc", [("memid", "memid"), ("name", "name"), ("invkind", "invkind"),
                                        ("resultType", "resultType"), ("paramCount", "paramCount"),
                                        ("paramNames", "paramNames"), ("paramTypes", "paramTypes")]),
    _abi.EVENTSINK: ("TempvoxEventSink", [("OnEvent", "OnEvent"), ("context", "context")]),
    _abi.PAGEINFO: ("TempvoxPageInfo", [("title", "title"), ("dialogId", "dialogId"), ("width", "width"),
                                        ("height", "height")]),
}

# Python interface pointer -> C table type; the methods have the same names.
INTERFACES = {
    _abi.ITypeInfo: "ITempvoxTypeInfoVtbl",
    _abi.IDispatch: "ITempvoxDispatchVtbl",
    _abi.IConnectionPoint: "ITempvoxConnectionPointVtbl",
    _abi.IHostServices: "ITempvoxHostServicesVtbl",
    _abi.IOleControl: "ITempvoxOleControlVtbl",
    _abi.IClassFactory: "ITempvoxClassFactoryVtbl",
}

CODES = ["S_OK", "S_FALSE", "E_NOINTERFACE", "E_INVALIDARG", "REGDB_E_CLASSNOTREG", "SELFREG_E_TYPELIB",
         "SELFREG_E_CLASS", "DISP_E_MEMBERNOTFOUND", "DISP_E_TYPEMISMATCH", "DISP_E_UNKNOWNNAME",
         "DISP_E_EXCEPTION", "DISP_E_OVERFLOW", "DISP_E_BADPARAMCOUNT"]
VALUES = {"VT_EMPTY": "TEMPVOX_VT_EMPTY", "VT_I2": "TEMPVOX_VT_I2", "VT_I4": "TEMPVOX_VT_I4",
          "VT_R4": "TEMPVOX_VT_R4", "VT_BSTR": "TEMPVOX_VT_BSTR", "VT_BOOL": "TEMPVOX_VT_BOOL",
          "DISPATCH_METHOD": "TEMPVOX_DISPATCH_METHOD", "DISPATCH_PROPERTYGET": "TEMPVOX_DISPATCH_PROPERTYGET",
          "DISPATCH_PROPERTYPUT": "TEMPVOX_DISPATCH_PROPERTYPUT", "DISPID_PROPERTYPUT": "TEMPVOX_DISPID_PROPERTYPUT"}
GUIDS = {"LIBID_TEMPVOXLib": "TEMPVOX_LIBID_TEMPVOXLib", "CLSID_Tempvox": "TEMPVOX_CLSID_Tempvox",
         "DIID_DTempvox": "TEMPVOX_DIID_DTempvox", "DIID_DTempvoxEvents": "TEMPVOX_DIID_DTempvoxEvents",
         "CLSID_TempvoxPropPage": "TEMPVOX_CLSID_TempvoxPropPage", "IID_Unknown": "TEMPVOX_IID_Unknown",
         "IID_ClassFactory": "TEMPVOX_IID_ClassFactory", "IID_Dispatch": "TEMPVOX_IID_Dispatch",
         "IID_TypeInfo": "TEMPVOX_IID_TypeInfo", "IID_ConnectionPoint": "TEMPVOX_IID_ConnectionPoint",
         "IID_HostServices": "TEMPVOX_IID_HostServices", "IID_OleControl": "TEMPVOX_IID_OleControl"}


def _table_methods(pointer):
    return [name for name, _ in pointer._type_._fields_[0][1]._type_._fields_]


@pytest.fixture(scope="module")
def header_says(tmp_path_factory):
    """What the C compiler reads in the header, as name -> integer."""
    compiler = shutil.which(os.environ.get("CC", "cc")) or shutil.which("gcc") or shutil.which("clang")
    if compiler is None:
        pytest.skip("no C compiler to read the header with")
    lines = []
    for structure, (c_type, fields) in STRUCTURES.items():
        lines.append(f'P("size {c_type}", sizeof({c_type}));')
        for _, c_field in fields:
            lines.append(f'P("offset {c_type}.{c_field}", offsetof({c_type}, {c_field}));')
            lines.append(f'P("width {c_type}.{c_field}", sizeof((({c_type}*)0)->{c_field}));')
    for pointer, c_table in INTERFACES.items():
        lines.append(f'P("size {c_table}", sizeof({c_table}));')
        for method in _table_methods(pointer):
            lines.append(f'P("offset {c_table}.{method}", offsetof({c_table}, {method}));')
    for code in CODES:
        lines.append(f'P("code {code}", (long long)TEMPVOX_{code});')
    for _, c_name in VALUES.items():
        lines.append(f'P("value {c_name}", (long long){c_name});')
    for _, c_name in GUIDS.items():
        lines.append(f'G("{c_name}", &{c_name});')
    source = tmp_path_factory.mktemp("abi") / "abi.c"
    source.write_text(
        "#include <stddef.h>\n#include <stdio.h>\n#include <tempvox/host.h>\n"
        "static void P(const char* name, long long value) { printf(\"%s %lld\\n\", name, value); }\n"
        "static void G(const char* name, const TempvoxGuid* g) {\n"
        "  printf(\"guid %s {%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}\\n\", name, g->Data1, g->Data2,\n"
        "         g->Data3, g->Data4[0], g->Data4[1], g->Data4[2], g->Data4[3], g->Data4[4], g->Data4[5],\n"
        "         g->Data4[6], g->Data4[7]);\n}\n"
        "int main(void) {\n" + "\n".join(lines) + "\nreturn 0;\n}\n")
    program = source.with_suffix("")
    subprocess.run([compiler, "-std=c11", "-Wall", "-Werror", "-I", str(HEADER_DIR), str(source), "-o",
                    str(program)], check=True)
    said = {}
    for line in subprocess.run([str(program)], check=True, capture_output=True, text=True).stdout.splitlines():
        kind, name, value = line.split(" ", 2)
        said[f"{kind} {name}"] = value
    return said


def _guid_text(guid):
    return "{%08X-%04X-%04X-%s-%s}" % (guid.Data1, guid.Data2, guid.Data3, bytes(guid.Data4[:2]).hex().upper(),
                                       bytes(guid.Data4[2:]).hex().upper())


@pytest.mark.parametrize("structure", list(STRUCTURES), ids=lambda s: s.__name__)
def test_structures_have_the_headers_size_and_offsets(header_says, structure):
    c_type, fields = STRUCTURES[structure]
    assert ctypes.sizeof(structure) == int(header_says[f"size {c_type}"])
    for py_field, c_field in fields:
        assert getattr(structure, py_field).offset == int(header_says[f"offset {c_type}.{c_field}"]), py_field
        assert getattr(structure, py_field).size == int(header_says[f"width {c_type}.{c_field}"]), py_field
    # Every field of the Python side is checked (a union counts by its members).
    named = {name for name, *_ in structure._fields_} - set(getattr(structure, "_anonymous_", ()))
    assert named <= {py for py, _ in fields}


@pytest.mark.parametrize("pointer", list(INTERFACES), ids=lambda p: p._type_.__name__)
def test_interface_tables_hold_the_headers_methods_in_its_order(header_says, pointer):
    c_table = INTERFACES[pointer]
    table = pointer._type_._fields_[0][1]._type_
    assert ctypes.sizeof(table) == int(header_says[f"size {c_table}"])
    for method in _table_methods(pointer):
        assert getattr(table, method).offset == int(header_says[f"offset {c_table}.{method}"]), method


def test_codes_values_and_identities_are_the_headers(header_says):
    for code in CODES:
        # The header's codes are 32-bit; C reads the unsigned spellings as such.
        assert getattr(_abi, code) == ctypes.c_int32(int(header_says[f"code {code}"])).value, code
    for py_name, c_name in VALUES.items():
        assert getattr(_abi, py_name) == int(header_says[f"value {c_name}"]), py_name
    for py_name, c_name in GUIDS.items():
        assert _guid_text(getattr(_abi, py_name)) == header_says[f"guid {c_name}"], py_name
