"""What docs/ARCHITECTURE.md says of folders and libraries, held against the tree and the built libraries.

  layers_test.py SOURCE_TREE BUILD_TREE
"""
import pathlib
import re
import subprocess
import sys
import unittest

TREE, BUILD = map(pathlib.Path, sys.argv[1:3])
WATCH = TREE / "ExternalDeviceLayer/Tools/VtVideoWatch"
PAGE = (TREE / "docs/ARCHITECTURE.md").read_text()


def rows(heading):
    """The cells of the first table below a heading."""
    table = PAGE.split(f"\n## {heading}\n")[1].split("\n|---")[1].split("\n\n")[0]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()[1:]]


def names(cell):
    return re.findall(r"`([^`]+)`", cell)


def symbols(library, *options):
    output = subprocess.run(["nm", "-P", *options, library], capture_output=True, text=True, check=True).stdout
    return {line.split()[0] for line in output.splitlines() if " " in line}


class Layers(unittest.TestCase):
    def test_every_folder_is_there_and_every_room_told(self):
        for row in rows("Layers"):
            for folder in (name for name in names(row[1]) if "/" in name):
                self.assertTrue((TREE / folder).is_dir(), folder)
        told = {name for row in rows("Rooms of the watch") for name in names(row[0])}
        self.assertEqual(told, {folder.name for folder in WATCH.iterdir() if folder.is_dir()})

        tests = {folder.name for folder in (TREE / "Tests").iterdir() if folder.is_dir()}
        self.assertEqual({f"Tests/{name}" for name in tests}, {name for row in rows("Tests") for name in names(row[0])})

    def test_a_source_carries_the_name_of_its_header(self):
        sources = [path for part in ("DeviceSdk", "ExternalDeviceLayer") for path in (TREE / part).rglob("*.[ch]*")
                   if path.suffix in (".c", ".cpp", ".h")]
        headers = {path.stem for path in sources if path.suffix == ".h"}
        for path in (path for path in sources if not path.stem.endswith("_Linux")):  # whose names are prescribed
            text = path.read_text()
            begun = any(path.stem.startswith(name) for name in re.findall(r'^#include "(\w+)\.h"', text, re.M))
            self.assertTrue(path.stem in headers or begun or "\nint main(" in text, path)

    def test_every_room_of_tool_and_engine_is_told(self):
        folder = TREE / "ExternalDeviceLayer/Tools/VtVideoMonitor"
        tool = {path.stem for path in folder.rglob("*.[ch]*") if path.is_file()}
        section = PAGE.split("\n## Rooms of the tool\n")[1].split("\n## ")[0]
        self.assertEqual(tool - {name.split(".")[0] for name in names(section)}, set())
        told = {name for row in rows("Rooms of the engine and of the judgement") for name in names(row[0])}
        sources = [path for library in ("WatchEngine", "WatchJudge")
                   for path in (TREE / "ExternalDeviceLayer/Core" / library / "Src").iterdir()]
        self.assertEqual(told, {path.stem for path in sources})

    def test_a_library_uses_those_alone_that_stand_before_it(self):
        targets = [name for row in rows("Layers") + rows("Rooms of the watch")
                   for name in names(row[2 if len(row) == 4 and "/" in row[1] else 1])]
        libraries = {path.name[3:-2]: path for path in BUILD.rglob("lib*.a")}
        order = [target for target in targets if target in libraries]
        self.assertGreaterEqual(len(order), 15, order)
        defined = {target: symbols(libraries[target], "-g", "--defined-only") for target in order}
        for place, target in enumerate(order):
            # The board's operations are whoever's the loader finds.
            missing = {name for name in symbols(libraries[target], "-u") - defined[target]
                       if not name.startswith(("Vt", "Veltrano_"))}
            for later in order[place + 1:]:
                self.assertFalse(missing & defined[later] - set().union(*(defined[one] for one in order[:place])),
                                 f"{target} uses {later}")

    def test_every_list_of_operations_is_the_same(self):
        generated = (BUILD / "DeviceSdk/Includes/VeltranoOperations.h").read_text()
        listed = set(re.findall(r'"(\w+)"', generated.split("aszOperations")[1]))
        board = symbols(BUILD / "lib/simulated/libVeltrano.so", "-D", "--defined-only")
        self.assertEqual(listed, {name for name in board if not name.startswith("VtSim_")})
        makers = (TREE / "docs/Makers.md").read_text()
        told = {name for line in makers.splitlines() if line.startswith("| `V") for name in names(line.split("|")[1])}
        self.assertEqual(listed, told)
        self.assertIn(f"exports these {len(listed)} operations", makers)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
