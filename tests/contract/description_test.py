"""contract.json says what every other statement of the contract says: headers, type library, calls, clients, pages."""

import ctypes
import difflib
import inspect
import json
import os
import pathlib
import re
import unittest

import kestor

_TREE = pathlib.Path(os.environ["KESTOR_TREE"])
_CONTRACT = json.loads((_TREE / "src/contract/contract.json").read_text())
_RECORDS = {record["name"]: record for record in _CONTRACT["records"]}
_SIZES = {described["name"]: described.get("size") for described in _CONTRACT["types"] + _CONTRACT["records"]}
_METHODS = [(interface, method) for interface in _CONTRACT["interfaces"] for method in interface["methods"]]
_RESULTS = {int(result["value"], 16): result for result in _CONTRACT["results"]}
_NUMBERS = ("char", "u8", "u16", "i32")

# The spellings of each type in the languages.
_SPELLINGS = {
    "u16": r"unsigned short|USHORT|(std::)?uint16_t", "u8": r"unsigned char|(std::)?uint8_t",
    "i16": r"short|(std::)?int16_t", "i32": r"int|long|LONG|(std::)?int32_t", "f32": "float",
    "amount": r"CURRENCY|(std::)?int64_t", "text": "BSTR",
}


def _normal(source, comments=None):
    """The source with types as the contract calls them, without comments but for those that match."""
    source = re.sub(r"/\*.*?\*/", "", source, flags=re.DOTALL)
    source = re.sub(r"//\s*(.*)", lambda m: f"«{m[1]}»" if comments and re.search(comments, m[1]) else "", source)
    for name, spellings in _SPELLINGS.items():
        source = re.sub(rf"\b({spellings})\b", name, source)
    return re.sub(r"\s*([^\w\s])\s*|\s+", lambda m: m[1] or " ", source).strip()


def _read(path):
    return (_TREE / path).read_text()


def _packed(source):
    return re.search(r"#pragma pack\(push,2\)(.*)#pragma pack\(pop\)", source)[1]


def _field(field, name):
    if field["type"] == "array":
        return f"{field['of']}* {name};"
    return f"{field['type']} {name}" + (f"[{field['length']}];" if "length" in field else ";")


def _flat(record, offset=0):
    """The fields with their offsets; those of a record in a record count as the outer one's."""
    for field in record["fields"]:
        inner = _RECORDS.get(field["type"])
        if inner and inner["kind"] == "struct":
            yield from _flat(inner, offset + field["offset"])
        else:
            yield field, offset + field["offset"]


def _arguments(method, attributes):
    written = []
    for argument in method["arguments"]:
        out = argument["direction"] == "out"
        stars = {"array": 1, "items": 1, "optional": 1 + out}.get(argument["type"], int(out))
        text = f"{argument.get('of', argument['type'])}{'*' * stars} {argument['name']}"
        if attributes:
            counted = f", size_is({argument['count']})" if "count" in argument else ""
            text = f"[{argument['direction']}{counted}{', retval' if 'retval' in argument else ''}] {text}"
        written.append(text)
    return f"HRESULT {method['name']}({', '.join(written)})"


def _tables(path):
    """The rows of a page's tables by the headings above them."""
    tables, current = {}, None
    for line in _read(path).replace("`", "").splitlines():
        if line.startswith("#"):
            under = tables.setdefault(line.lstrip("# "), [])
        if not line.startswith("|"):
            current = None
        elif line.startswith("|---"):
            under.append([])
            current = under[-1]
        elif current is not None:
            current.append([cell.strip() for cell in line[1:-1].split("|")])
    return tables


class DescriptionTest(unittest.TestCase):
    maxDiff = None

    def assertSame(self, given, described):
        lines = [re.sub(r"([;{}])", r"\1\n", text).split("\n") for text in (given, described)]
        differences = difflib.unified_diff(*lines, "given", "described", n=1, lineterm="")
        self.assertEqual("\n".join(differences), "")

    def test_type_library(self) -> None:
        enums = ""
        for enum in _CONTRACT["enumerations"]:
            values = [f"{v['name']} = {v['value']}" for v in enum["values"]]
            values = [v + "," for v in values[:-1]] + values[-1:]
            notes = [f" // '{v['character']}'\n" if "character" in v else "" for v in enum["values"]]
            enums += f"typedef enum {{{''.join(map(''.join, zip(values, notes)))}}} {enum['name']};"
        records = ""
        for record in _CONTRACT["records"]:
            records += f"// {record['meaning']} {record['size']} bytes.\n{record['kind']} {record['name']} {{"
            for field in record["fields"]:
                records += f"[size_is({field['count']})] " if "count" in field else ""
                records += f"{_field(field, field['name'])} // {field['offset']}\n"
            records += "};"
        interfaces = classes = ""
        for interface in _CONTRACT["interfaces"]:
            methods = "".join(_arguments(method, True) + ";" for method in interface["methods"])
            interfaces += f"[object, uuid({interface['id']})] interface {interface['name']} : IUnknown {{{methods}}};"
            classes += f"[uuid({interface['class_id']})] coclass {interface['class']} "
            classes += f"{{[default] interface {interface['name']};}};"
        library = _CONTRACT["library"]
        described = f"""[uuid({library['id']}), version({library['version']}), lcid(1033),
            helpstring("KESTOR 1.0 Type Library")] library {library['name']} {{ importlib("stdole2.tlb"); {enums}
            #pragma pack(push, {_CONTRACT["packing"]})
            {records}
            #pragma pack(pop)
            {interfaces} {classes} }};"""
        given = re.sub(r',\s*helpstring\("\w+ Class"\)', "", _read("src/contract/KESTORLib.idl"))
        offsets = r"^\d+$|^'.'$|bytes\.$"
        self.assertSame(_normal(given, offsets), _normal(described, offsets))

    def test_sizes(self) -> None:
        for record in _RECORDS.values():
            sizes = [4 if field["type"] == "array" else _SIZES[field["type"]] * field.get("length", 1)
                     for field in record["fields"]]
            self.assertEqual([field["size"] for field in record["fields"]], sizes)
            self.assertEqual(record["size"], sum(sizes) if record["kind"] == "struct" else max(sizes))

    def test_headers(self) -> None:
        described = ""
        for enum in _CONTRACT["enumerations"]:
            values = ", ".join(f"{value['name']} = {value['value']}" for value in enum["values"])
            described += f"enum {enum['name']} : i32 {{{values}}};"
        described += f"struct CURRENCY {{ amount int64; }};\n#pragma pack(push, {_CONTRACT['packing']})\n"
        for record in _CONTRACT["records"]:
            name, fields = record["name"], record["fields"]
            described += f"{record['kind']} {name} {{{''.join(_field(field, field['name']) for field in fields)}}};"
            if len(fields) > 1 and record["kind"] == "struct":
                described += "".join(
                    f"static_assert(offsetof({name}, {field['name']}) == {field['offset']});" for field in fields)
            sized = f"kBytesWithoutPointer<{name}>" if record["sent"] < record["size"] else f"sizeof({name})"
            described += f"static_assert({sized} == {record['sent']});"
        given = _normal(_read("src/contract/records.h"))
        self.assertSame(given[given.index("enum "):], _normal(described + "\n#pragma pack(pop)"))

        described = ""
        for interface in _CONTRACT["interfaces"]:
            methods = "".join(f"virtual {_arguments(method, False)} = 0;" for method in interface["methods"])
            name = interface["name"]
            described += f"struct {name} : IUnknown {{{methods} protected: ~{name}() = default; }};"
        given = _normal(_read("src/contract/interfaces.h"))
        self.assertSame("".join(re.findall(r"struct .*?\};", given)), _normal(described))
        identities = {name: re.sub("0x|[^0-9A-F]", "", value)
                      for name, value in re.findall(r"\b(?:LIBID|CLSID|IID)_(\w+)=\{(.*?)\}\}", given)}
        described = [(each["name"], each["id"]) for each in [_CONTRACT["library"]] + _CONTRACT["interfaces"]]
        described += [(each["class"], each["class_id"]) for each in _CONTRACT["interfaces"]]
        self.assertEqual(identities, {name: identity.replace("-", "") for name, identity in described})

    def test_calls(self) -> None:
        forms = {("in", "text"): "InText", ("out", "text"): "OutText", ("in", "record"): "InRecord",
                 ("out", "record"): "OutFilledRecord", ("in", "optional"): "InRecordPointer",
                 ("out", "optional"): "OutRecord", ("in", "array"): "InArray", ("out", "items"): "OutBuffer"}
        calls = []
        for _, method in _METHODS:
            sent = str(method["slot"])
            counts = [argument.get("count") for argument in method["arguments"]]
            for argument in method["arguments"]:
                name, direction = argument["name"], argument["direction"]
                form = forms.get((direction, argument["type"])) or {"in": "InValue", "out": "OutValue"}[direction]
                if name not in counts:
                    sent += f",sent::{form}({argument['count'] + ',' if 'count' in argument else ''}{name})"
            calls.append(sent)
        given = _normal("".join(_read(f"src/marshal/{name}.cpp") for name in ("rel", "relatorio2", "rel_converte")))
        self.assertEqual(re.findall(r"return Call\((.*?)\);\}", given), calls)
        self.assertEqual(re.findall(r"Serve<&(\w+)::(\w+)", given), [(i["name"], m["name"]) for i, m in _METHODS])
        version = re.search(r"kProtocolVersion = (\d+)", _read("src/platform/channel/channel.h"))[1]
        self.assertEqual(_CONTRACT["protocol"], int(version))

    def test_results(self) -> None:
        def text(number):
            asked = (kestor._library.kestor_result_name, kestor._library.kestor_result_meaning)
            return tuple(ask(number).decode() for ask in asked)

        texts = {number: text(number) for number in _RESULTS}
        self.assertEqual(texts, {number: (result["name"], result["meaning"]) for number, result in _RESULTS.items()})
        self.assertEqual(len(set(texts.values())), len(texts))
        # A number of the server that has only one form is known in the other form too.
        other = {number ^ 0x80000000 for number, result in _RESULTS.items() if result["group"] == "server"}
        for facility in (0x0000, 0x0004, 0x8000, 0x8001, 0x8002, 0x8004, 0x8007, 0x8008):
            named = {number for number in range(facility << 16, (facility + 1) << 16)
                     if not kestor._library.kestor_result_name(number).startswith(b"FACILITY_")}
            self.assertEqual(named - other - set(_RESULTS), set())
        for number, told in ((0x0004000D, "FACILITY_ITF_13: notice 13 of the interface"),
                             (0x80071234, "FACILITY_WIN32_4660: failure 4660 of the system"),
                             (0x87FF0001, "FACILITY_2047_1: failure 1 of an unknown source")):
            self.assertEqual(": ".join(text(number)), told)

    def test_c_header(self) -> None:
        header = _read("src/client/kestor.h")
        given = {name: int(value, 16) & 0xFFFFFFFF for name, value in re.findall(r"(KESTOR_\w+) = (-?0x\w+)", header)}
        self.assertEqual(given, {result["c"]: number for number, result in _RESULTS.items() if "c" in result})
        for name, shown in re.findall(r"(KESTOR_\w+) = -0x\w+,? */\* (0x\w+)", header):
            self.assertEqual(given[name], int(shown, 16))
        flags = {v["c"]: v["value"] for e in _CONTRACT["enumerations"] for v in e["values"] if "c" in v}
        self.assertEqual({n: int(v) for n, v in re.findall(r"(KESTOR_\w+) = (\d+)\b(?!x)", header)}, flags)
        for name, value in flags.items():
            self.assertEqual(getattr(kestor, name.replace("KESTOR", "")), value)

        def members(record):
            for field, _ in _flat(record):
                if field["type"] in _RECORDS:
                    yield f"union {{{''.join(members(_RECORDS[field['type']]))}}} {field['c']};"
                elif "c" in field:
                    yield _field(field, field["c"])

        structures = dict(re.findall(r"typedef struct (\w+)\{(.*?)\}\1;", _packed(_normal(header))))
        described = {r["c"]: _normal("".join(members(r))) for r in _RECORDS.values() if "c" in r}
        self.assertEqual(structures, described)

    def test_python_package(self) -> None:
        kinds = {ctypes.c_char: "char", ctypes.c_uint8: "char", ctypes.c_uint16: "u16", ctypes.c_int16: "i16",
                 ctypes.c_int32: "i32", ctypes.c_int64: "amount", ctypes.c_float: "f32"}

        def layout(record):
            for name, kind in record._fields_:
                if issubclass(kind, ctypes.Union):
                    kind = list(layout(kind))
                elif issubclass(kind, ctypes.Array):
                    kind = f"{kinds[kind._type_]} {kind._length_}"
                else:
                    kind = kinds[kind]
                yield name.strip("_"), getattr(record, name).offset, kind

        def described(record):
            for field, offset in _flat(record):
                if "c" in field:
                    length = f" {field['length']}" if "length" in field else ""
                    inner = _RECORDS.get(field["type"])
                    yield field["c"], offset, list(described(inner)) if inner else field["type"] + length

        types = {"const char*": ctypes.c_char_p, "const void*": ctypes.c_char_p, "void*": ctypes.c_void_p,
                 "char*": ctypes.c_void_p, "kestor_reports*": ctypes.c_void_p, "kestor_legacy*": ctypes.c_void_p,
                 "uint16_t": ctypes.c_uint16, "unsigned": ctypes.c_uint, "int": ctypes.c_int, "size_t": ctypes.c_size_t,
                 "kestor_result": ctypes.c_int32, "kestor_content": kestor._Content, "kestor_names": kestor._Names,
                 "kestor_options": kestor._Options}
        for record in _RECORDS.values():
            if "c" in record:
                types[record["c"]] = mine = getattr(kestor, record.get("python", "_CodeChange"))
                self.assertEqual(list(layout(mine)), list(described(record)), mine)
                self.assertEqual(ctypes.sizeof(mine), record["sent"])

        def given(text):
            if text in types:
                return types[text]
            return ctypes.POINTER(given(text[:-1])) if text.endswith("*") else types[text.replace("const ", "")]

        header = re.sub(r"/\*.*?\*/", "", _read("src/client/kestor.h"), flags=re.DOTALL)
        functions = {name: [re.sub(r"\w+$", "", argument).strip() for argument in arguments.split(",")]
                     for name, arguments in re.findall(r"(kestor_\w+)\(([^)]*)\);", header)}
        for name, arguments in functions.items():
            if not name.endswith("_utf8") and arguments != [""]:
                self.assertEqual(getattr(kestor._library, name).argtypes, list(map(given, arguments)), name)
        calling = {name for name in functions if re.match("kestor_(reports|legacy|renumber)(?!_close)", name)}
        self.assertEqual(calling, {method["c"] for _, method in _METHODS})
        for _, method in _METHODS:
            target = kestor
            for part in method["python"].split("."):
                target = getattr(target, part)
            sources = [target.fget, target.fset] if isinstance(target, property) else [target]
            self.assertRegex("".join(map(inspect.getsource, sources)), method["c"] + r"\b")

    def test_methods_page(self) -> None:
        page = _tables("docs/interfaces.md")
        classes = [[i["class"], i["name"], i["keeps"]] for i in _CONTRACT["interfaces"]]
        self.assertEqual(page["Objects"][0], classes)
        for interface in _CONTRACT["interfaces"]:
            rows = []
            for method in interface["methods"]:
                arguments = method["arguments"]
                outs = "; ".join(f"{a['name']}: {a['meaning']}" for a in arguments if a["direction"] == "out")
                names = ", ".join(argument["name"] for argument in arguments)
                rows.append([str(method["slot"]), f"{method['name']}({names})", method["meaning"], outs])
            self.assertEqual(page[interface["name"]][0], rows)
        enums = [e for e in _CONTRACT["enumerations"] if e["name"] != "KESTOR_Erros"]
        for rows, enum in zip(page["Flags and enumerations"], enums, strict=True):
            self.assertCountEqual(rows, [
                [str(v["value"]), *([v["character"]] if "character" in v else []), v["name"], v["meaning"]]
                for v in enum["values"]])

    def test_results_on_the_methods_page(self) -> None:
        page = _tables("docs/interfaces.md")
        rows = []
        for value in next(e for e in _CONTRACT["enumerations"] if e["name"] == "KESTOR_Erros")["values"]:
            cells = {"8": "", "0": ""}
            for result in _RESULTS.values():
                if result["name"] == value["name"]:
                    told = f"{result['value']}: {result['meaning']}"
                    if "given" in result:
                        told = result["meaning"] + "; no method gives it"
                    cells[result["value"][2]] = told
            rows.append([str(value["value"]), value["name"], *cells.values()])
        self.assertEqual(page["Numbers of the server"][0], rows)
        for heading, group in (("Numbers of shared data files", "data files"), ("File errors", "file errors"),
                               ("Numbers of the runtime", "runtime")):
            described = [[r["value"], r["name"], r["meaning"]] for r in _RESULTS.values() if r["group"] == group]
            self.assertEqual([row[:1] + row[-2:] if len(row) == 3 else [row[0], *row[2:4]]
                              for row in page[heading][0]], described)
        for row in page["Numbers of shared data files"][0]:
            self.assertEqual(int(row[0], 16), 0x80040000 + int(row[1]))
            self.assertEqual(row[4] != "no method gives it", _RESULTS[int(row[0], 16)].get("given", True))

        def results(table):
            """What a table has; of a group it says x for the digits that differ."""
            found = set()
            for first, second, *_ in table:
                values = re.findall("0x[0-9A-F]{4}[0-9A-Fx]{4}", first)
                if second and "x" not in values[0][2:]:
                    self.assertEqual([_RESULTS[int(v, 16)]["name"] for v in values], second.split(", "))
                found |= {re.sub("0x8007xxxx", "file errors", re.sub("0x8004..xx", "data files", v))
                          for v in values}
                if first == "any but S_OK":
                    found |= results(page["IZNPL_Rel::BuscaQdeCamposArquivo"][0])
            return found

        self.assertEqual(results(page["Objects"][1]), set(_CONTRACT["creation_results"]))
        self.assertEqual(results(page["Results of every call"][0]), set(_CONTRACT["call_results"]))
        for interface, method in _METHODS:
            table = page[f"{interface['name']}::{method.get('same_as', method['name'])}"][0]
            self.assertEqual(results(table), set(method["results"]), method["name"])

    def test_protocol_page(self) -> None:
        page = _tables("docs/protocol.md")
        self.assertEqual(page["Sockets"][0], [
            [i["class"], "{" + i["class_id"] + "}", i["name"], i["id"]] for i in _CONTRACT["interfaces"]])

        def fields(record):
            return ", ".join(f"{field['name']} ({field['size']}{', signed' if field['type'][0] == 'i' else ''})"
                             for field, _ in _flat(record) if field["type"] != "array")

        def array(counted):
            return f"array({counted['count']} × {_SIZES[counted['of']]})"

        def written(argument):
            kind, name, of = argument["type"], argument["name"], argument.get("of")
            if kind in _NUMBERS:
                return f"{name} {'u8' if kind == 'char' else kind}"
            if kind in ("array", "items"):
                return f"{name} {array(argument)}" if kind == "array" else array(argument).replace("array", "items")
            return f"{name} text" if kind == "text" else f"{name} {'?' if kind == 'optional' else ''}{of}{{…}}"

        rows = []
        carried = {argument.get("of") for _, method in _METHODS for argument in method["arguments"]}
        for name in (name for name in _RECORDS if name in carried):
            record, told = _RECORDS[name], ""
            last = record["fields"][-1]
            if last["type"] == "array":
                told = array(last) + (f": {fields(_RECORDS[last['of']])}" if last["of"] in _RECORDS else "")
            rows.append([name, f"{record['sent']} bytes: {fields(record)}", told])
        self.assertEqual(page["Arguments"][1], rows)
        for interface in _CONTRACT["interfaces"]:
            self.assertEqual(page[interface["name"]][0], [
                [str(method["slot"]), method["name"]] +
                [", ".join(written(a) for a in method["arguments"] if a["direction"] == d) for d in ("in", "out")]
                for method in interface["methods"]])

    def test_files_page(self) -> None:
        page = _tables("docs/formats.md")
        for heading, place, name in (("Export settings, .REE", 0, "tagREG_RELEXPORTACAO"),
                                     ("Export settings, .REE", 1, "tagREG_RELEXPORTACAO_ITEM"),
                                     ("Filter, .REF", 1, "tagCAMPO_FILTRO")):
            described = [[str(offset), str(field["size"])] for field, offset in _flat(_RECORDS[name])
                         if field["type"] != "array"]
            self.assertEqual([row[:2] for row in page[heading][place]][:len(described)], described)


if __name__ == "__main__":
    unittest.main()
