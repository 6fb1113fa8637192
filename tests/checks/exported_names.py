#!/usr/bin/env python3
"""Checks that the dynamic symbols of libddal.so are exactly those of the lists under abi/.

usage: exported_names.py LIBDDAL ABI_DIR

exports.txt, unsupported.txt, zero.txt and extensions.txt list the exported names. All names of unsupported.txt share one
address. weak.txt lists the weak names.
"""
import pathlib
import subprocess
import sys


def names_of(path):
    lines = path.read_text().splitlines()
    names = [line.strip() for line in lines if line.strip() and not line.startswith("#")]
    if len(names) != len(set(names)):
        sys.exit(f"{path} lists a name twice")
    return set(names)


def exported_by(library):
    """Name -> (address, kind letter of nm)."""
    out = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    rows = [line.split() for line in out.splitlines()]
    return {name.split("@")[0]: (address, kind) for address, kind, name in rows if kind != "A"}


def main(library, abi):
    unsupported = names_of(abi / "unsupported.txt")
    listed = unsupported | names_of(abi / "exports.txt") | names_of(abi / "zero.txt") | names_of(abi / "extensions.txt")
    weak = names_of(abi / "weak.txt")
    exported = exported_by(library)

    faults = []

    def complain(names, text):
        faults.extend(f"{name}: {text}" for name in sorted(names))

    complain(exported.keys() - listed, "exported, but in no list under abi/")
    complain(listed - exported.keys(), "listed under abi/, but not exported")
    complain(weak - listed, "in abi/weak.txt, but in no other list")
    complain({n for n in weak & exported.keys() if exported[n][1] not in "WV"}, "is strong, abi/weak.txt says weak")
    complain({n for n in exported.keys() - weak if exported[n][1] in "WV"}, "is weak, but not in abi/weak.txt")
    addresses = {exported[name][0] for name in unsupported & exported.keys()}
    if len(addresses) > 1:
        faults.append(f"the unsupported operations lie at {len(addresses)} addresses instead of one")

    print("\n".join(faults) or f"{len(exported)} names exported")
    return 1 if faults or not exported else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2])))
