"""Checks the house rules on this project, after it has shown on made-up trees that each rule can be broken."""
import sys
import tempfile
import unittest
from pathlib import Path

import house

PROJECT = Path(sys.argv.pop(1)) if len(sys.argv) > 1 else Path(__file__).resolve().parents[2]


def findings_of(files):
    """The findings of a tree that has just these files (path -> text)."""
    with tempfile.TemporaryDirectory() as folder:
        for path, text in files.items():
            file = Path(folder, path)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        return house.check(folder)


class BrokenRules(unittest.TestCase):
    # --- rainy day flows

    def assert_found(self, path, text, expected):
        findings = findings_of({path: text})
        self.assertEqual(len(findings), 1, findings)
        self.assertIn(expected, findings[0])
        self.assertTrue(findings[0].startswith(path + ":"), findings[0])

    def test_every_floor(self):
        rooms = list(house.FLOORS)
        for room in rooms:
            for target in rooms:
                allowed = target == room or target in house.below(room)
                findings = findings_of({f"NvxQtCommon/{room}/X.cpp": f'#include "NvxQtCommon/{target}/Y.h"\n'})
                self.assertEqual(findings == [], allowed, f"{room} -> {target}: {findings}")

    def test_looks_up_within_the_contract(self):
        self.assert_found("NvxQtCommon/contract/base/X.cpp",
                          '#include "NvxQtCommon/contract/stream/StreamRecords.h"\n', "looks up")

    def test_control_looks_up_to_streaming(self):
        self.assert_found("NvxQtCommon/control/X.cpp", '#include "NvxQtCommon/streaming/Y.h"\n', "looks up")

    def test_only_the_factory_knows_the_array(self):
        line = '#include "NvxQtCommon/array/ZcrDeviceController.h"\n'
        self.assert_found("NvxQtCommon/control/NvxDeviceController.cpp", line, "looks up")
        self.assert_found("NvxQtCommon/control/NvxDeviceControllerFactory.cpp",
                          line + '#include "NvxQtCommon/streaming/Y.h"\n', "looks up to streaming")

    def test_transfer_knows_no_streams(self):
        self.assert_found("NvxQtCommon/transfer/X.cpp", '#include "NvxQtCommon/streaming/Y.h"\n', "looks up")

    def test_file_outside_of_the_rooms(self):
        self.assert_found("NvxQtCommon/newroom/X.cpp", "int x;\n", "no room")

    def test_include_without_its_room(self):
        self.assert_found("NvxQtCommon/control/X.cpp", '#include "Y.h"\n', "have the form")
        self.assert_found("NvxQtCommon/control/X.cpp", '#include "simulator/Y.h"\n', "have the form")
        self.assert_found("NvxQtCommon/control/X.cpp", "#include <NvxQtCommon/control/Y.h>\n", "quotation marks")

    def test_qt_in_the_contract(self):
        for name in ["QString", "QtGlobal", "QtCore/QObject", "qglobal.h"]:
            self.assert_found("NvxQtCommon/contract/job/X.h", f"#pragma once\n#include <{name}>\n", "Qt in the contract")

    def test_operating_system_outside_of_platform(self):
        for name in ["unistd.h", "sys/socket.h", "netinet/in.h", "fcntl.h", "windows.h", "WinSock2.h"]:
            self.assert_found("NvxQtCommon/control/X.cpp", f"#include <{name}>\n", "outside of platform/")
            self.assert_found("NvxQtCommon/contract/base/X.cpp", f"# include <{name}>\n", "outside of platform/")

    def test_header_without_guard(self):
        self.assert_found("NvxQtCommon/control/X.h", "class X;\n", "#pragma once")

    def test_q_object_behind_something(self):
        self.assert_found("NvxQtCommon/control/X.h", "#pragma once\nclass X { Q_OBJECT };\n", "Q_OBJECT")

    def test_long_file(self):
        self.assert_found("simulator/X.cpp", "\n" * 601, "more than 600 lines")

    def test_unfinished_work(self):
        for mark in ["TO" "DO", "FIX" "ME", "X" "XX", "not imple" "mented", "place" "holder"]:
            self.assert_found("examples/x.cpp", f"// {mark}: the rest\n", "unfinished")
            self.assert_found("docs/x.md", f"{mark}\n", "unfinished")

    def test_path_of_a_machine(self):
        for path in ["/ho" "me/anna/x", "/ro" "ot/x", "/wo" "rk/main", "C:\\Use" "rs\\anna", "/t" "mp/wt/x"]:
            self.assert_found("scripts/x", f"dir={path}\n".replace("=", " "), "path of one machine")

    def test_sleeping_test(self):
        for call in ["QTest::qWait(10)", "QThread::msleep(5)", "std::this_thread::sleep_for(1s)", "usleep(1000)"]:
            self.assert_found("tests/control/helper.cpp", f"    {call};\n", "sleeps")

    def test_test_that_never_runs(self):
        self.assert_found("tests/control/tst_X.cpp", "int x;\n", "registered nowhere")
        findings = findings_of({"tests/control/tst_X.cpp": "int x;\n",
                                "tests/control/CMakeLists.txt": "# nvx_add_test(tst_X)\nnvx_add_test(tst_Y)\n"})
        self.assertEqual(len(findings), 1, findings)

    def test_document_names_a_test_that_is_not_there(self):
        tests = {"tests/control/tst_X.cpp": "void works();\nvoid X::works() {}\n",
                 "tests/control/CMakeLists.txt": "nvx_add_test(tst_X)\n"}
        for name in ["tst_Y", "tst_X::breaks", "tst_Y::works"]:
            findings = findings_of(tests | {"docs/x.md": f"see\n`{name}`\n"})
            self.assertEqual(findings, [f"docs/x.md:2: no test {name}"])
        self.assertEqual(findings_of(tests | {"docs/x.md": "see `tst_X`, `tst_X::works`\n"}), [])


class KeptRules(unittest.TestCase):
    # --- happy flows

    def test_a_good_tree_has_no_findings(self):
        self.assertEqual(findings_of({
            "NvxQtCommon/contract/base/X.h": "#pragma once\n#include <cstdint>\n",
            "NvxQtCommon/contract/stream/X.cpp":
                '#include "NvxQtCommon/contract/base/X.h"\n#include <zlib.h>\n#include "xxhash.h"\n',
            "NvxQtCommon/control/X.h": "#pragma once\n#include <QObject>\nclass X : QObject\n{\n    Q_OBJECT\n};\n",
            "NvxQtCommon/control/X.cpp": '#include "NvxQtCommon/control/X.h"\n#include "X.moc"\n',
            "NvxQtCommon/control/NvxDeviceControllerFactory.cpp": '#include "NvxQtCommon/array/Y.h"\n',
            "NvxQtCommon/platform/X.cpp": "#include <sys/socket.h>\n",
            "NvxQtCommon/array/X.cpp": '#include "NvxQtCommon/streaming/Y.h"\n#include "NvxQtCommon/transfer/Y.h"\n',
            "simulator/X.cpp": '#include "simulator/X.h"\n' + "\n" * 599,
            "tests/control/tst_X.cpp": "#include <unistd.h>\nQVERIFY(spy.wait(100));\n",
            "tests/control/CMakeLists.txt": "nvx_add_test(tst_X LABELS threads)\n",
            "docs/x.md": "The picture lies in recordings/demo, see src/home/index.\n",
            "build/dev/x.cpp": "// TO" "DO\n",
        }), [])

    def test_this_project(self):
        self.assertTrue((PROJECT / "NvxQtCommon/contract/base/Export.h").exists(), f"no project at {PROJECT}")
        self.assertEqual(house.check(PROJECT), [])


if __name__ == "__main__":
    unittest.main(verbosity=1)
