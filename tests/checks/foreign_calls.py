#!/usr/bin/env python3
"""Checks that calls of other libraries cannot be cancelled or open a descriptor without the stand-ins.

usage: foreign_calls.py LIBDDAL TABLE

Every undefined name of LIBDDAL is one of these: a stand-in of src/core/libc_calls.cpp serves it; TABLE calls it "guarded"
(its callers hold a ForeignCall or a CancellationHold); TABLE calls it "plain" (it neither opens a descriptor nor is a
cancellation point). Rows of TABLE are "NAME|PATTERN guarded|plain"; a name that stands there in full is not looked up
among the patterns. Nothing registers a function for the end of the process.
"""
import fnmatch
import re
import subprocess
import sys

# POSIX's cancellation points, the optional ones in glibc's input and output, and every function that opens: never
# plain.
NEVER_PLAIN = re.compile("""^(_*(isoc\\d+_)?)?(
    accept4? | clock_nanosleep | cnd_(timed)?wait | close | connect | creat | fcntl | fdatasync | fsync | lockf | mq_\\w+ | msgrcv
    | msgsnd | msync | nanosleep | open | openat2? | pause | p?poll | p?read(v2?)? | p?select | pthread_(cond_\\w*wait|join|\\w*join_np
    |testcancel) | p?write(v2?)? | recv(from|m?msg)? | sem_(\\w*wait|open) | send(to|m?msg|file)? | sigpause | sigsuspend
    | sig(timed)?wait(info)? | sleep | splice | system | tcdrain | tee | thrd_(join|sleep) | usleep | vmsplice | wait[34]?
    | wait(id|pid) | dup | dup[23]? | epoll_\\w+ | eventfd\\w* | fanotify_init | inotify_init1? | memfd_create | mk\\w*temps?
    | perf_event_open | pidfd_\\w+ | pipe2? | popen | pclose | posix_openpt | shm_open | signalfd | socket(pair)? | timerfd_create
    | userfaultfd | dlm?open | freopen | fopen | fdopendir | opendir | scandir | setmntent | tmpfile | getmntent(_r)? | endmntent
    | fclose | fflush | fget\\w+ | fput\\w+ | fread | fwrite | fseeko? | ftello? | rewind | f?printf | d?printf | v[fd]?printf
    | fscanf | vfscanf | getc\\w* | getdelim | getline | getw?char | putc\\w* | puts | setvbuf | ungetc | v?syslog | openlog | closelog
    | get(addrinfo|host\\w+|pw\\w+|gr\\w+|sp\\w+) | glob | nftw | ftw | perror | localtime_r | mktime | strftime | tzset | strerror_r
    | if_(name|index)\\w+ | posix_spawnp? | sd_\\w+ | blkid_(new\\w+|do\\w+|free_probe)
    )(64)?(_2|_chk|_time64)?$""", re.VERBOSE)


def symbols(*options):
    out = subprocess.run(["nm", *options], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in out.splitlines()}


def read_table(path):
    with open(path, encoding="utf-8") as lines:
        rows = [line.split("#")[0].split() for line in lines]
    table = {}
    for row in filter(None, rows):
        if len(row) != 2 or row[1] not in ("guarded", "plain") or row[0] in table:
            sys.exit(f"{path}: wrong row: {' '.join(row)}")
        table[row[0]] = row[1]
    return table


def faults(needed, stand_ins, table):
    for name in sorted(needed):
        kinds = [table[row] for row in sorted(table, key=len) if fnmatch.fnmatchcase(name, row)]
        kind = table.get(name) or (kinds[-1] if kinds else None)
        if name in ("__cxa_atexit", "__aeabi_atexit", "atexit"):
            yield f"{name}: an object of static lifetime has a destructor, and threads may use it while the process exits"
        if name in stand_ins:
            if table.get(name):
                yield f"{name}: has a stand-in and a row in the table"
        elif kind is None:
            yield f"{name}: neither a stand-in in src/core/libc_calls.cpp nor a row in the table"
        elif kind == "plain" and NEVER_PLAIN.match(name):
            yield f"{name}: opens a descriptor or is a cancellation point: give it a stand-in in src/core/libc_calls.cpp"


def main(library, table_path):
    needed = symbols("-D", "--undefined-only", library)
    stand_ins = {name.removeprefix("__wrap_") for name in symbols("--defined-only", library) if name.startswith("__wrap_")}
    found = list(faults(needed, stand_ins, read_table(table_path)))
    if not stand_ins & needed:
        found.append(f"{library}: no stand-ins found")
    print("\n".join(found) or f"{len(needed)} names, {len(stand_ins & needed)} with a stand-in")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
