"""The Python package against the real server: every method of every class, notices, failures, activation."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import threading
import unittest

_HOME = pathlib.Path(tempfile.mkdtemp(prefix="kestor-test-"))
os.environ.update(KESTOR_HOME=str(_HOME / "home"), XDG_RUNTIME_DIR=str(_HOME), KESTOR_SYSTEM=str(_HOME / "none"))
os.environ.pop("KESTOR_SERVER", None)

import kestor  # noqa: E402

_EXAMPLES = pathlib.Path(os.environ["KESTOR_EXAMPLES"])


def _ctl(*arguments: str) -> str:
    return subprocess.run([os.environ["KESTORCTL"], *arguments], check=True, capture_output=True, text=True).stdout


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        _ctl("setup", "--reports", str(_HOME / "reports"), "--module", f"CT={_HOME / 'contabil'}")
        shutil.copy(_EXAMPLES / "contabil" / "XCT01.REL", _HOME / "contabil")

    @classmethod
    def tearDownClass(cls) -> None:
        server = [line.split()[3].rstrip(",") for line in _ctl("status").splitlines() if "running, process" in line]
        for process in server:
            os.kill(int(process), 9)
        shutil.rmtree(_HOME)

    def test_everything(self) -> None:
        with self.assertRaises(kestor.Error) as none:
            kestor.Reports("CT", "01", only_if_running=True)
        self.assertEqual(none.exception.result, 0x800706BA)
        model = (_EXAMPLES / "contabil" / "Balancete.REL").read_bytes()

        with kestor.Legacy("CT", "01", timeout=30) as legacy:
            nothing = legacy.list()
            self.assertFalse(nothing)
            self.assertEqual(nothing.name, "KESTOR_NENHUM_ARQUIVO_ENCONTRADO")
            self.assertIs(legacy.write("Balancete", model), True)
            self.assertIs(legacy.write("Outro", b"x", quietly=True), True)
            self.assertEqual(legacy.write("Outro", b"y", keep_existing=True).result, 0x00040004)
            self.assertEqual(legacy.list(), ["Balancete", "Outro"])
            self.assertEqual(legacy.read("Balancete"), kestor.Content(model))
            self.assertIs(legacy.delete("Outro"), True)
            missing = legacy.read("Outro")
            self.assertIsInstance(missing, kestor.Notice)
            self.assertIn("CT01Outro.REL", missing.reason)
            settings = kestor.ExportSettings(file_name="c:\\saída.txt", delimiter=";", header_length=3)
            items = [kestor.ExportItem(content="Relação", alias="Conta", type="A"), kestor.ExportItem()]
            self.assertIs(legacy.set_export_settings("Balancete", settings, items), True)
            self.assertEqual(legacy.export_settings("Balancete"), (settings, items))
            entry = kestor.FilterEntry(code=301, type=4)
            entry.value.amount = -7
            self.assertIs(legacy.set_filter("Balancete", [entry]), True)
            self.assertEqual(legacy.filter("Balancete")[0].value.amount, -7)
            fields = {field.code: field for field in legacy.fields()}
            self.assertEqual(fields[302].alias, "SaldoAnterior")
            update = legacy.update("Balancete", 10, 5, [kestor.Column(alias="Nada", width=3)])
            self.assertEqual(update.result, 0x0004000B)
            with self.assertRaises(ValueError):
                kestor.Column(alias="x" * 26)

        with kestor.Reports("CT", "01") as store:
            self.assertEqual(store.list(), ["Balancete"])
            self.assertIs(kestor.renumber("CT", "01", [(302, 301)]), True)
            document = store.read("Balancete")
            self.assertEqual(document.version, 1)
            self.assertNotIn(b"302", document.bytes)
            self.assertIs(store.write("Análise", b"a\0b", 7), True)
            self.assertEqual(store.read("análise"), kestor.Content(b"a\0b", 7))
            self.assertEqual(store.write("Análise", b"", keep_existing=True).name, "KESTOR_ARQUIVO_JA_EXISTE")
            store.default = "Análise"
            self.assertEqual(store.default, "Análise")
            with self.assertRaises(KeyError):
                store.default = "Nada"
            self.assertEqual(store.default, "Análise")
            store.default = None
            self.assertIsNone(store.default)
            self.assertIs(store.delete("Análise", demonstration=True), True)
            self.assertEqual(store.deleted(), ["Análise"])
            self.assertEqual(store.write("Análise", b"", check_demonstrations=True).result, 0x0004000C)
            self.assertIn("SaldoMes", [field.alias for field in store.fields()])
            with self.assertRaises(kestor.Error) as gone:
                store.delete("Nada")
            self.assertIn("CT01Nada.RXL", str(gone.exception))
        with self.assertRaises(kestor.Error):
            store.list()  # closed
        with self.assertRaises(kestor.Error):
            kestor.Reports("XX", "01")

    def test_threads(self) -> None:
        failures = []

        def work(number: int) -> None:
            try:
                with kestor.Reports("CT", "02") as store:
                    for i in range(10):
                        store.write(f"M{number}", f"{number} {i}".encode())
                        assert store.read(f"M{number}").bytes == f"{number} {i}".encode()
            except BaseException as failure:  # noqa: BLE001
                failures.append(failure)

        threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])


if __name__ == "__main__":
    unittest.main()
