"""The table of folders in ARCHITECTURE.md, and the row of a source file in it."""
import re


class Architecture:
    def __init__(self, root):
        self.root = root
        self.may_use = {}
        self.families = {}  # by page: headers, folders, models, commands
        for line in (root / "ARCHITECTURE.md").read_text().splitlines():
            cells = [cell.strip() for cell in line.split("|")]
            if len(cells) == 5 and re.fullmatch(r"`[\w/]+`", cells[1]):
                self.may_use[cells[1].strip("`")] = set(re.findall(r"`([\w/]+)`", cells[3]))
            family = re.fullmatch(r"\[(\w+)\]\(docs/families/\1\.md\)", cells[1]) if len(cells) == 7 else None
            if family:
                self.families[family[1]] = [re.findall(r"`([^`]+)`", cell) for cell in cells[2:6]]

    def folder_of(self, path):
        """Returns the row of a path below the root: the longest one that begins the path, or None."""
        rows = [folder for folder in self.may_use if path == folder or path.startswith(folder + "/")]
        return max(rows, key=len, default=None)
