"""Tempvox, the speech player control with pace control, from Python.

A pure-Python binding over the loadable module libtempvox.so (ctypes, no
compiled extension). See Tempvox for the control itself.
"""

from ._abi import (CLSID_Tempvox, DISP_E_BADPARAMCOUNT, DISP_E_MEMBERNOTFOUND, DISP_E_OVERFLOW,
                   DISP_E_TYPEMISMATCH, PROGID_CONTROL, REGDB_E_CLASSNOTREG, SELFREG_E_CLASS, SELFREG_E_TYPELIB)
from ._registry import module_for, registry_root
from .control import Tempvox, TempvoxError, load_module, register, unregister

__all__ = [
    "Tempvox", "TempvoxError", "register", "unregister", "load_module", "registry_root", "module_for",
    "CLSID_Tempvox", "PROGID_CONTROL", "REGDB_E_CLASSNOTREG", "SELFREG_E_TYPELIB", "SELFREG_E_CLASS",
    "DISP_E_MEMBERNOTFOUND", "DISP_E_TYPEMISMATCH", "DISP_E_BADPARAMCOUNT", "DISP_E_OVERFLOW",
]
