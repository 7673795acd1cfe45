"""Client of KESTOR, the report-model repository.

    import kestor

    with kestor.Reports("CT", "01") as store:
        for name in store.list():
            print(name, store.read(name).version)

A method gives what it is asked for. An expected outcome that is no success, such as "no such model", is a value of the
class Notice, which counts as false; a failure is raised as Error. Both have the result, its name and meaning, and the
server's reason. Texts are str; the server knows the characters of code page 1252.

An object is used by one thread at a time. All objects of a process belong to one home.

The library is libkestor.so.1, or what the environment variable KESTOR_LIBRARY names.
"""

from __future__ import annotations

import ctypes
import os
from ctypes import POINTER, byref, c_char, c_char_p, c_int, c_int16, c_int32, c_int64, c_size_t, c_uint, c_uint8
from ctypes import c_uint16, c_uint32, c_void_p
from dataclasses import dataclass
from typing import Callable, Iterable, List, Optional, Sequence, Tuple, Type, TypeVar, Union

__all__ = [
    "Column", "Content", "Error", "ExportItem", "ExportSettings", "Field", "FilterEntry", "Legacy", "LegacyField",
    "Notice", "Reports", "renumber", "use_home",
]

_ENCODING = "cp1252"
_KEEP_EXISTING = 1
_CHECK_DEMONSTRATIONS = 2


# ---- Records: as kestor.h declares them --------------------------------------------------------------------------------


class _Options(ctypes.Structure):
    _fields_ = [("size", c_uint32), ("milliseconds", c_uint32), ("only_if_running", c_uint8)]


class _Content(ctypes.Structure):
    _fields_ = [("bytes", c_void_p), ("size", c_size_t), ("version", c_uint16)]


class _Names(ctypes.Structure):
    _fields_ = [("names", POINTER(c_char_p)), ("count", c_size_t)]


def _texts(*names: str) -> Callable[[type], type]:
    """Gives a record a property of type str for each text field, which lies in it under the name with a _ in front."""

    def add(record: type) -> type:
        for name in names:
            raw = "_" + name

            def get(self: ctypes.Structure, raw: str = raw) -> str:
                return getattr(self, raw).rstrip(b"\0").decode(_ENCODING, "replace")

            def set_(self: ctypes.Structure, text: str, raw: str = raw) -> None:
                room = getattr(type(self), raw).size
                encoded = text.encode(_ENCODING)
                most = max(1, room - 1)
                if len(encoded) > most:
                    raise ValueError(f"{raw[1:]}: at most {most} characters")
                setattr(self, raw, encoded if encoded or room > 1 else b"\0")

            setattr(record, name, property(get, set_))
        return record

    return add


class _Record(ctypes.LittleEndianStructure):
    _pack_ = 2

    def __init__(self, **values: object) -> None:
        super().__init__()
        for name, value in values.items():
            if not hasattr(type(self), name):
                raise TypeError(f"{type(self).__name__} has no {name}")
            setattr(self, name, value)

    def __eq__(self, other: object) -> bool:
        return type(self) is type(other) and bytes(self) == bytes(other)  # type: ignore[call-overload]

    def __repr__(self) -> str:
        fields = ", ".join(f"{field[0].lstrip('_')}={getattr(self, field[0].lstrip('_'))!r}" for field in self._fields_)
        return f"{type(self).__name__}({fields})"

    __hash__ = None  # type: ignore[assignment]


@_texts("description", "alias", "options", "type", "alignment")
class Field(_Record):
    """A field that reports can use. may_filter, may_total and may_sort are 1 or 0."""

    _pack_ = 2
    _fields_ = [
        ("code", c_uint16), ("width", c_uint16), ("_description", c_char * 26), ("_alias", c_char * 26),
        ("_options", c_char * 200), ("may_filter", c_uint8), ("may_total", c_uint8), ("may_sort", c_uint8),
        ("_type", c_char), ("_alignment", c_char), ("filler", c_uint8),
    ]


@_texts("description", "alias", "options", "type", "alignment")
class LegacyField(_Record):
    """The same, as first-generation clients get it."""

    _pack_ = 2
    _fields_ = [
        ("code", c_int32), ("width", c_int32), ("_description", c_char * 26), ("_alias", c_char * 26),
        ("_options", c_char * 200), ("may_filter", c_int32), ("may_total", c_int32), ("may_sort", c_int32),
        ("_type", c_char), ("_alignment", c_char),
    ]


@_texts("alias")
class Column(_Record):
    """A column of a first-generation model, to be given a new place and width."""

    _pack_ = 2
    _fields_ = [("_alias", c_char * 26), ("width", c_int32)]


@_texts("file_name", "header_description", "footer_description", "header_type", "footer_type", "decimal_separator",
        "field_separator", "version", "delimiter")
class ExportSettings(_Record):
    """The export settings of a first-generation model; item_count is set from the items."""

    _pack_ = 2
    _fields_ = [
        ("_file_name", c_char * 200), ("_header_description", c_char * 200), ("_footer_description", c_char * 200),
        ("header_length", c_uint16), ("footer_length", c_uint16), ("item_count", c_uint16), ("_header_type", c_char),
        ("_footer_type", c_char), ("_decimal_separator", c_char), ("_field_separator", c_char), ("_version", c_char),
        ("_delimiter", c_char),
    ]


@_texts("content", "alias", "type")
class ExportItem(_Record):
    """An exported item of a first-generation model."""

    _pack_ = 2
    _fields_ = [("_content", c_char * 200), ("_alias", c_char * 26), ("_type", c_char), ("filler", c_uint8)]


class _Value(ctypes.Union):
    _pack_ = 2
    _fields_ = [
        ("f", ctypes.c_float), ("amount", c_int64), ("u", c_uint16), ("i", c_int32), ("text", c_char * 100),
        ("flag", c_uint8),
    ]


class FilterEntry(_Record):
    """An entry of a filter. Which form of the value counts is the clients' affair."""

    _pack_ = 2
    _fields_ = [("code", c_uint16), ("value", _Value), ("type", c_int16)]

    def __repr__(self) -> str:
        return f"FilterEntry(code={self.code}, type={self.type})"


class _CodeChange(ctypes.LittleEndianStructure):
    _pack_ = 2
    _fields_ = [("from_", c_uint16), ("to", c_uint16)]


@dataclass(frozen=True)
class Content:
    """What a model holds. First-generation models have no version: 0."""

    bytes: bytes
    version: int = 0


# ---- Results -------------------------------------------------------------------------------------------------------------


@dataclass(frozen=True)
class Notice:
    """An expected outcome that is no success."""

    result: int
    name: str
    meaning: str
    reason: str

    def __bool__(self) -> bool:
        return False


class Error(Exception):
    """A failure: of the server, or on the way to it."""

    def __init__(self, result: int, name: str, meaning: str, reason: str) -> None:
        super().__init__(f"0x{result & 0xFFFFFFFF:08X} {name}: {meaning}" + (f" ({reason})" if reason else ""))
        self.result = result & 0xFFFFFFFF
        self.name = name
        self.meaning = meaning
        self.reason = reason


# ---- The library ---------------------------------------------------------------------------------------------------------


def _declare() -> ctypes.CDLL:
    library = ctypes.CDLL(os.environ.get("KESTOR_LIBRARY") or "libkestor.so.1")
    handle, options, text = c_void_p, POINTER(_Options), c_char_p
    functions = {
        "use_home": [text],
        "reports_open": [options, text, text, POINTER(handle)],
        "reports_list": [handle, POINTER(_Names)],
        "reports_read": [handle, text, POINTER(_Content)],
        "reports_write": [handle, text, c_uint16, c_uint, c_char_p, c_size_t],
        "reports_delete": [handle, text, c_int],
        "reports_get_default": [handle, POINTER(c_void_p)],
        "reports_set_default": [handle, text],
        "reports_deleted": [handle, POINTER(_Names)],
        "reports_fields": [handle, POINTER(POINTER(Field)), POINTER(c_size_t)],
        "legacy_open": [options, text, text, POINTER(handle)],
        "legacy_list": [handle, POINTER(_Names)],
        "legacy_read": [handle, text, POINTER(_Content)],
        "legacy_write": [handle, text, c_uint, c_char_p, c_size_t],
        "legacy_write_quietly": [handle, text, c_uint, c_char_p, c_size_t],
        "legacy_delete": [handle, text],
        "legacy_update": [handle, text, c_uint16, c_uint16, POINTER(Column), c_size_t],
        "legacy_get_export": [handle, text, POINTER(ExportSettings), POINTER(POINTER(ExportItem))],
        "legacy_put_export": [handle, text, POINTER(ExportSettings), POINTER(ExportItem)],
        "legacy_get_filter": [handle, text, POINTER(POINTER(FilterEntry)), POINTER(c_size_t)],
        "legacy_put_filter": [handle, text, POINTER(FilterEntry), c_size_t],
        "legacy_fields": [handle, POINTER(POINTER(LegacyField)), POINTER(c_size_t)],
        "renumber": [options, text, text, POINTER(_CodeChange), c_size_t],
    }
    for name, arguments in functions.items():
        function = getattr(library, "kestor_" + name)
        function.argtypes, function.restype = arguments, c_int32
    for name in ("reports_close", "legacy_close", "free"):
        getattr(library, "kestor_" + name).argtypes = [c_void_p]
        getattr(library, "kestor_" + name).restype = None
    for name, given in (("result_name", [c_int32]), ("result_meaning", [c_int32]), ("last_reason", [])):
        getattr(library, "kestor_" + name).argtypes = given
        getattr(library, "kestor_" + name).restype = c_char_p
    return library


_library = _declare()
_R = TypeVar("_R", bound=ctypes.Structure)


def _outcome(result: int) -> Optional[Notice]:
    """None for a success. Raises Error."""
    if result == 0:
        return None
    texts = (_library.kestor_result_name(result), _library.kestor_result_meaning(result), _library.kestor_last_reason())
    name, meaning, reason = (text.decode() for text in texts)
    if result < 0:
        raise Error(result, name, meaning, reason)
    return Notice(result, name, meaning, reason)


def _done(result: int) -> Union[bool, Notice]:
    notice = _outcome(result)
    return True if notice is None else notice


def _take_names(names: _Names) -> List[str]:
    try:
        return [names.names[i].decode() for i in range(names.count)]
    finally:
        _library.kestor_free(names.names)


def _take_content(content: _Content) -> Content:
    try:
        return Content(ctypes.string_at(content.bytes, content.size), content.version)
    finally:
        _library.kestor_free(content.bytes)


def _take_records(record: Type[_R], records: "ctypes._Pointer[_R]", count: int) -> List[_R]:
    try:
        size = ctypes.sizeof(record)
        taken = ctypes.string_at(records, count * size) if count else b""
        return [record.from_buffer_copy(taken, i * size) for i in range(count)]
    finally:
        _library.kestor_free(records)


def _array(record: Type[_R], records: Sequence[_R]) -> "ctypes.Array[_R]":
    return (record * len(records))(*records)


def _options(timeout: Optional[float], only_if_running: bool) -> _Options:
    milliseconds = 0 if timeout is None else max(1, min(int(timeout * 1000), 0xFFFFFFFF))
    return _Options(ctypes.sizeof(_Options), milliseconds, only_if_running)


def use_home(folder: Union[str, "os.PathLike[str]"]) -> None:
    """The home whose server is asked, instead of $KESTOR_HOME. Before anything else, and before there are other threads."""
    _outcome(_library.kestor_use_home(os.fsencode(folder)))


class _Store:
    _open: str
    _close: str

    def __init__(self, module: str, component: str, *, timeout: Optional[float] = None,
                 only_if_running: bool = False) -> None:
        """Opens the models of a module and component. `timeout`: seconds that each call may take."""
        self._handle = c_void_p()
        options = _options(timeout, only_if_running)
        result = getattr(_library, self._open)(byref(options), module.encode(), component.encode(), byref(self._handle))
        self.notice = _outcome(result)

    def close(self) -> None:
        """Releases the object of the server. More than once does no harm."""
        handle, self._handle = self._handle, c_void_p()
        getattr(_library, self._close)(handle)

    def __enter__(self: "_S") -> "_S":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if hasattr(self, "_handle"):
            self.close()

    def _read(self, function: Callable[..., int], name: str) -> Union[Content, Notice]:
        content = _Content()
        notice = _outcome(function(self._handle, name.encode(), byref(content)))
        return notice if notice is not None else _take_content(content)


_S = TypeVar("_S", bound=_Store)


class Reports(_Store):
    """The report models of a module and component. Opening it migrates those of the first generation."""

    _open, _close = "kestor_reports_open", "kestor_reports_close"

    def list(self) -> List[str]:
        """The names of the models, sorted."""
        names = _Names()
        _outcome(_library.kestor_reports_list(self._handle, byref(names)))
        return _take_names(names)

    def read(self, name: str) -> Union[Content, Notice]:
        """A model; a Notice when there is none, or it cannot be opened."""
        return self._read(_library.kestor_reports_read, name)

    def write(self, name: str, content: bytes, version: int = 1, *, keep_existing: bool = False,
              check_demonstrations: bool = False) -> Union[bool, Notice]:
        """Stores a model; a Notice when one is there that is to be kept, or was deleted as a demonstration."""
        flags = _KEEP_EXISTING * keep_existing | _CHECK_DEMONSTRATIONS * check_demonstrations
        return _done(
            _library.kestor_reports_write(self._handle, name.encode(), version, flags, content, len(content)))

    def delete(self, name: str, *, demonstration: bool = False) -> Union[bool, Notice]:
        """Deletes a model; the name of a demonstration model is hidden from then on."""
        return _done(_library.kestor_reports_delete(self._handle, name.encode(), demonstration))

    @property
    def default(self) -> Optional[str]:
        """The name of the default report; None when there is none. Setting it to what is not there raises KeyError."""
        name = c_void_p()
        _outcome(_library.kestor_reports_get_default(self._handle, byref(name)))
        if not name:
            return None
        try:
            return ctypes.string_at(name.value).decode()
        finally:
            _library.kestor_free(name)

    @default.setter
    def default(self, name: Optional[str]) -> None:
        notice = _outcome(
            _library.kestor_reports_set_default(self._handle, None if name is None else name.encode()))
        if notice is not None:
            raise KeyError(name)

    def deleted(self) -> List[str]:
        """The names of the deleted demonstration models."""
        names = _Names()
        _outcome(_library.kestor_reports_deleted(self._handle, byref(names)))
        return _take_names(names)

    def fields(self) -> List[Field]:
        """The fields that reports can use."""
        fields, count = POINTER(Field)(), c_size_t()
        _outcome(_library.kestor_reports_fields(self._handle, byref(fields), byref(count)))
        return _take_records(Field, fields, count.value)


class Legacy(_Store):
    """The first-generation models of a module and component."""

    _open, _close = "kestor_legacy_open", "kestor_legacy_close"

    def list(self) -> Union[List[str], Notice]:
        """The names of the models, sorted; a Notice when there is none."""
        names = _Names()
        notice = _outcome(_library.kestor_legacy_list(self._handle, byref(names)))
        return notice if notice is not None else _take_names(names)

    def read(self, name: str) -> Union[Content, Notice]:
        """A model; a Notice when there is none, or it is in use."""
        return self._read(_library.kestor_legacy_read, name)

    def write(self, name: str, content: bytes, *, keep_existing: bool = False,
              quietly: bool = False) -> Union[bool, Notice]:
        """Stores a model; a Notice when one is there that is to be kept. `quietly`: by the method for older clients."""
        function = _library.kestor_legacy_write_quietly if quietly else _library.kestor_legacy_write
        return _done(
            function(self._handle, name.encode(), _KEEP_EXISTING * keep_existing, content, len(content)))

    def delete(self, name: str) -> Union[bool, Notice]:
        """Deletes a model and its export settings; what is not there is passed over."""
        return _done(_library.kestor_legacy_delete(self._handle, name.encode()))

    def update(self, name: str, left: int, top: int, columns: Sequence[Column]) -> Union[bool, Notice]:
        """Sets margins, and the order and widths of the columns."""
        return _done(
            _library.kestor_legacy_update(self._handle, name.encode(), left, top, _array(Column, columns),
                                          len(columns)))

    def export_settings(self, name: str) -> Tuple[ExportSettings, List[ExportItem]]:
        """The export settings of a model, and their items."""
        settings, items = ExportSettings(), POINTER(ExportItem)()
        _outcome(_library.kestor_legacy_get_export(self._handle, name.encode(), byref(settings), byref(items)))
        return settings, _take_records(ExportItem, items, settings.item_count)

    def set_export_settings(self, name: str, settings: ExportSettings,
                            items: Sequence[ExportItem]) -> Union[bool, Notice]:
        """Replaces the export settings of a model."""
        settings.item_count = len(items)
        return _done(
            _library.kestor_legacy_put_export(self._handle, name.encode(), byref(settings), _array(ExportItem, items)))

    def filter(self, name: str) -> List[FilterEntry]:
        """The filter of a model."""
        entries, count = POINTER(FilterEntry)(), c_size_t()
        _outcome(_library.kestor_legacy_get_filter(self._handle, name.encode(), byref(entries), byref(count)))
        return _take_records(FilterEntry, entries, count.value)

    def set_filter(self, name: str, entries: Sequence[FilterEntry]) -> Union[bool, Notice]:
        """Replaces the filter of a model."""
        return _done(
            _library.kestor_legacy_put_filter(self._handle, name.encode(), _array(FilterEntry, entries), len(entries)))

    def fields(self) -> List[LegacyField]:
        """The fields that models can use."""
        fields, count = POINTER(LegacyField)(), c_size_t()
        _outcome(_library.kestor_legacy_fields(self._handle, byref(fields), byref(count)))
        return _take_records(LegacyField, fields, count.value)


def renumber(module: str, component: str, changes: Iterable[Tuple[int, int]], *, timeout: Optional[float] = None,
             only_if_running: bool = False) -> Union[bool, Notice]:
    """Renumbers field codes, old to new, in all report models of a module and component."""
    records = [_CodeChange(old, new) for old, new in changes]
    options = _options(timeout, only_if_running)
    return _done(
        _library.kestor_renumber(byref(options), module.encode(), component.encode(), _array(_CodeChange, records),
                                 len(records)))
