"""Replaces a text in a report model, through the client library in Python.

    python3 replace.py MODULE COMPONENT NAME OLD NEW

Lists the models, reads one, changes it and writes it back.
"""

import sys

import kestor


def main() -> int:
    if len(sys.argv) != 6:
        print("usage: replace.py MODULE COMPONENT NAME OLD NEW", file=sys.stderr)
        return 2
    module, component, name, old, new = sys.argv[1:]
    try:
        with kestor.Reports(module, component) as store:
            for listed in store.list():
                print(listed)
            content = store.read(name)
            if not content:
                print(f"replace: {content.name}: {content.meaning} ({content.reason})", file=sys.stderr)
                return 1
            places = content.bytes.count(old.encode()) if old else 0
            changed = content.bytes.replace(old.encode(), new.encode()) if old else content.bytes
            store.write(name, changed, content.version)
            print(f"{name}: {places} replaced")
    except kestor.Error as error:
        print(f"replace: {error}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
