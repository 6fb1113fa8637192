"""The possible states of a disk after a power cut: a model of a disk that does not order writes.

A file's bytes, its mode and owner, and each directory entry reach the disk on their own, in any order, unless a sync came in
between; only changes of one name keep their order. Bytes that were not synced are missing, partial, zero or complete.
"""
import itertools
import os
import random

MOST_STATES = 4000  # at one point; a random choice beyond that


class Node:
    """A file (bytes) or a directory (None). Its first content and attributes are on the disk, the later ones may be."""

    def __init__(self, data, mode, owner, group):
        self.contents = [data]
        self.attributes = [(mode, owner, group)]

    def now(self):
        return self.contents[-1], *self.attributes[-1]

    def write(self, data):
        self.contents.append(data)

    def change(self, *values):  # mode, owner, group; None leaves one as it is
        self.attributes.append(tuple(old if new is None else new for old, new in zip(self.attributes[-1], values)))

    def sync(self, data_only):
        del self.contents[:-1]
        if not data_only:
            del self.attributes[:-1]

    def after_cut(self):
        contents = list(self.contents)
        if len(contents) > 1:
            # A file that only grew keeps its synced content.
            kept = contents[0] if all(data.startswith(contents[0]) for data in contents) else b''
            tail = contents[-1][len(kept):]
            contents += [kept, kept + tail[:len(tail) // 2], kept + bytes(len(tail))]
        return [(data, *attributes) for data in dict.fromkeys(contents) for attributes in dict.fromkeys(self.attributes)]


class Disk:
    """The file names that an operation touches: the present ones, the stored ones and the changes in between."""

    def __init__(self, find):
        self.find = find  # path -> Node of before the operation, or None
        self.now = {}
        self.stored = {}
        self.changed = set()  # paths
        self.pending = []  # in their order, each {path: Node or None}

    def node(self, path):
        if path not in self.now:
            self.now[path] = self.stored[path] = self.find(path)
        return self.now[path]

    def change(self, names):
        for path in names:
            self.node(path)
        self.now.update(names)
        self.changed.update(names)
        self.pending.append(names)

    def sync_directory(self, directory):
        synced, left = [], []
        for names in reversed(self.pending):  # a change includes the earlier ones of its names
            here = any(os.path.dirname(path) == directory for path in names)
            later = any(path in after for after in synced for path in names)
            (synced if here or later else left).append(names)
        for names in reversed(synced):
            self.stored.update(names)
        self.pending = left[::-1]

    def name_choices(self):
        """Yields every choice of pending changes that may be on the disk. A change includes earlier ones of its names."""
        count = len(self.pending)
        needs = [[i for i in range(j) if self.pending[i].keys() & self.pending[j].keys()] for j in range(count)]
        for choice in range(1 << count):
            made = [j for j in range(count) if choice >> j & 1]
            if all(choice >> i & 1 for j in made for i in needs[j]):
                names = dict(self.stored)
                for j in made:
                    names.update(self.pending[j])
                yield names

    def after_cut(self, seed):
        """Returns the states, each {path: None or (bytes, mode, owner, group)}, and whether the list is complete."""
        states, complete = [], True
        for names in self.name_choices():
            # A file under two names has one content. A file in a missing directory is lost.
            there = {path: node for path, node in names.items() if node and not self.is_lost(path, names)}
            nodes = list(dict.fromkeys(there.values()))
            variants = [node.after_cut() for node in nodes]
            combinations = itertools.product(*variants)
            if len(states) + len(self.pending) > MOST_STATES:
                complete = False
                chance = random.Random(seed)
                combinations = [[chance.choice(variant) for variant in variants] for _ in range(8)]
            for values in combinations:
                of = dict(zip(nodes, values))
                states.append({path: of[there[path]] if path in there else None for path in names if path in self.changed})
        return states, complete

    @staticmethod
    def is_lost(path, names):
        parent = os.path.dirname(path)
        while len(parent) > 1:
            if parent in names and names[parent] is None:
                return True
            parent = os.path.dirname(parent)
        return False
