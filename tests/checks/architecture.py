"""The table of folders in ARCHITECTURE.md, and where a source file stands in it."""
import re


class Architecture:
    def __init__(self, root):
        self.root = root
        self.may_use = {}
        for line in (root / "ARCHITECTURE.md").read_text().splitlines():
            cells = [cell.strip() for cell in line.split("|")]
            if len(cells) == 5 and re.fullmatch(r"`[\w/]+`", cells[1]):
                self.may_use[cells[1].strip("`")] = set(re.findall(r"`([\w/]+)`", cells[3]))

    def folder_of(self, path):
        """The row that a path below the root belongs to: the longest that it starts with, None if there is none."""
        rows = [folder for folder in self.may_use if path == folder or path.startswith(folder + "/")]
        return max(rows, key=len, default=None)
