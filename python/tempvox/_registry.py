"""Reading the per-user registry that the module registers itself in."""

import os


def registry_root():
    """$XDG_DATA_HOME/tempvox/registry, else ~/.local/share/tempvox/registry."""
    data = os.environ.get("XDG_DATA_HOME", "")
    if data.startswith("/"):
        return os.path.join(data, "tempvox", "registry")
    return os.path.join(os.path.expanduser("~"), ".local", "share", "tempvox", "registry")


def read_value(key, name="@"):
    """Value `name` of `key` ("CLSID/{...}/InprocServer32"), or None."""
    if any(part in ("", ".", "..") or part.startswith(".") for part in key.split("/")):
        return None
    try:
        with open(os.path.join(registry_root(), key, ".values"), encoding="utf-8") as values:
            for line in values:
                entry, equals, value = line.rstrip("\n").partition("=")
                if equals and entry == name:
                    return value
    except OSError:
        return None
    return None


def module_for(name):
    """(class id text, module path) of a ProgID or a braced class id, or
    None when it is not registered."""
    clsid = name if name.startswith("{") else read_value(name + "/CLSID")
    if clsid is None:
        return None
    path = read_value("CLSID/%s/InprocServer32" % clsid.upper())
    return (clsid.upper(), path) if path else None
