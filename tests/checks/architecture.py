"""The table of folders in ARCHITECTURE.md, and the row of a source file in it."""
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
        """Returns the row of a path below the root: the longest one that begins the path, or None."""
        rows = [folder for folder in self.may_use if path == folder or path.startswith(folder + "/")]
        return max(rows, key=len, default=None)
