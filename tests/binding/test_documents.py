"""docs/commands.md against the module: every command, its arguments and its reply method."""
import os
import re
import unittest

import cases
import vu_mom

PATH = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir, "docs",
                    "commands.md")


def table_rows():
    """The cells of each row that documents a command."""
    with open(PATH, "rb") as document:
        text = document.read().decode("utf-8")
    rows = []
    for line in text.splitlines():
        if not line.startswith("| `"):
            continue
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        if re.match(r"`\w+\(", cells[0]):
            rows.append(cells)
    return rows


class CommandsDocument(unittest.TestCase):

    def test_every_command(self):
        """Each once, in no other number."""
        names = [re.match(r"`(\w+)\(", cells[0]).group(1) for cells in table_rows()]
        self.assertEqual(len(names), len(set(names)))
        self.assertEqual(set(names), set(
            name for name in vars(vu_mom.VuMom)
            if not name.startswith("_") and name != "debug_show_all"))

    def test_arguments(self):
        """As the module takes them, with their defaults."""
        for cells in table_rows():
            name = re.match(r"`(\w+)\(", cells[0]).group(1)
            parameters = ", ".join(
                parameter if default is cases.REQUIRED else "%s=%r" % (parameter, default)
                for parameter, default in cases.BY_NAME[name].parameters)
            self.assertEqual(cells[0], "`%s(%s)`" % (name, parameters))

    def test_reply_methods(self):
        for cells in table_rows():
            name = re.match(r"`(\w+)\(", cells[0]).group(1)
            row = cases.BY_NAME[name]
            if row.prefix:
                self.assertEqual(cells[2], "`%s`" % row.prefix)
            else:
                self.assertNotIn("on_", cells[2])

    def test_results(self):
        """The result class that a command's context names stands under what arrives."""
        for cells in table_rows():
            row = cases.BY_NAME[re.match(r"`(\w+)\(", cells[0]).group(1)]
            if row.result:
                self.assertIn("`%s`" % row.result, cells[3])


if __name__ == "__main__":
    unittest.main()
