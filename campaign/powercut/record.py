"""Follows the changes of an operation to a board's files, from the system calls of its process."""
import os
import re
import subprocess

from disk import Disk, Node

CALLS = ('openat,open,creat,close,dup,dup2,dup3,fcntl,read,pread64,readv,write,pwrite64,writev,lseek,splice,sendfile,'
         'copy_file_range,truncate,ftruncate,fallocate,fsync,fdatasync,sync,syncfs,rename,renameat,renameat2,link,linkat,'
         'symlink,symlinkat,unlink,unlinkat,rmdir,mkdir,mkdirat,chmod,fchmod,fchmodat,chown,fchown,lchown,fchownat,openat2,'
         'clone,clone3,fork,vfork,execve')
HARMLESS = {'close', 'read', 'pread64', 'readv', 'dup', 'dup2', 'dup3', 'fcntl', 'lseek', 'clone', 'clone3', 'fork', 'vfork',
            'execve'}
UMASK = 0o022


def trace(command, log):
    subprocess.run(['strace', '-f', '--seccomp-bpf', '-y', '-xx', '-s', '1000000', '-e', 'trace=' + CALLS, '-o', log]
                   + command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def text(escaped):
    return re.sub(rb'\\x(..)', lambda m: bytes([int(m[1], 16)]), escaped.encode()).decode('latin-1')


def calls(log, program):
    """Yields (call, arguments, result) of the program's process, and ('programs', [], 0) when one that it started ends."""
    halves, own, children = {}, set(), set()
    for line in open(log, encoding='latin-1'):
        pid, rest = line.rstrip('\n').split(None, 1)
        if rest.endswith('<unfinished ...>'):
            halves[pid] = rest[:-len('<unfinished ...>')]
            continue
        if rest.startswith('<... '):
            rest = halves.pop(pid, '') + rest.split('resumed>', 1)[1]
        if pid in children and rest.startswith('+++'):
            yield 'programs', [], 0, ''
        match = re.match(r'(\w+)\((.*)\)\s+= (-?\d+)(.*)$', rest)
        if not match:
            continue
        name, arguments, result, tail = match[1], match[2], int(match[3]), match[4]
        if name == 'execve' and result == 0 and text(arguments.split('"')[1]) == program:
            own.add(pid)
        if pid not in own or result < 0:
            continue
        if name in ('clone', 'clone3', 'fork', 'vfork'):
            (own if 'CLONE_THREAD' in arguments else children).add(str(result))
        yield name, arguments, result, tail


def split(arguments):
    """Returns the arguments with "texts" and <paths> decoded. Numbers stay texts, descriptors become (number, path)."""
    parts = re.findall(r'"(?:[^"]*)"(?:\.\.\.)?|[^,\s"<{\[]*<[^>]*>(?:\(deleted\))?|\{[^}]*\}|\[[^\]]*\]|[^,\s]+', arguments)
    found = []
    for part in parts:
        if part.startswith('"'):
            found.append(text(part[1:part.rindex('"')]))
        elif '<' in part:
            number, path = part.split('<', 1)
            found.append((number, text(path[:path.index('>')])))
        else:
            found.append(part)
    return found


class Stream:
    """An open file: its node, or a pipe's bytes; a position."""

    def __init__(self, node, path, appends):
        self.node, self.path, self.appends, self.position = node, path, appends, 0


class Recorder:
    """Follows the calls. `points` gets (change, disk) after each call that changed something below `root`."""

    def __init__(self, root, find):
        self.root = root
        self.disk = Disk(find)
        self.open = {}
        self.pipes = {}

    def board_path(self, path):
        """Returns the path on the board without links in its folders, or None for a path of the machine."""
        path = os.path.join(os.path.realpath(os.path.dirname(path)), os.path.basename(path))
        return path[len(self.root):] if path.startswith(self.root + '/') else None

    def opened(self, flags, mode, number, where):
        if 'O_PATH' in flags:
            return None
        real = self.board_path(where)
        if real is None:
            return None
        if '__O_TMPFILE' in flags or 'O_TMPFILE' in flags:
            self.open[number] = Stream(Node(b'', mode, 0, 0), real, False)
            return f'create an unnamed file in {os.path.dirname(real)}'
        if 'O_DIRECTORY' in flags:
            self.open[number] = Stream(None, real, False)
            return None
        node = self.disk.node(real)
        done = None
        if node is None and 'O_CREAT' in flags:
            node = Node(b'', mode, 0, 0)
            self.disk.change({real: node})
            done = f'create {real}'
        elif node and 'O_TRUNC' in flags and node.now()[0] != b'':
            node.write(b'')
            self.disk.changed.add(real)
            done = f'truncate {real}'
        self.open[number] = Stream(node, real, 'O_APPEND' in flags)
        return done

    def put(self, stream, data, position=None):
        old = stream.node.now()[0]
        at = len(old) if stream.appends else stream.position if position is None else position
        self.disk.changed.add(stream.path)
        stream.node.write(old[:at].ljust(at, b'\0') + data + old[at + len(data):])
        if position is None:
            stream.position = at + len(data)
        return f'write {len(data)} bytes to {stream.path}'

    def splice(self, given, result):
        source, target = given[0], given[2]
        if source[0] in self.open:
            stream = self.open[source[0]]
            data = stream.node.now()[0][stream.position:stream.position + result]
            stream.position += result
            self.pipes[target[1]] = self.pipes.get(target[1], b'')  # both ends of a pipe have one name
            self.pipes[target[1]] += data
            return None
        data, self.pipes[source[1]] = self.pipes[source[1]][:result], self.pipes[source[1]][result:]
        return self.put(self.open[target[0]], data)

    def step(self, name, arguments, result, tail):
        """Follows one call. Returns its change of the board's files, or None."""
        given = split(arguments)
        stream = self.open.get(given[0][0]) if given and isinstance(given[0], tuple) else None
        if name in ('openat', 'open', 'creat', 'openat2'):
            mode = re.search(r'(?:, |mode=)(0\d+)[,}]?', arguments)
            mode = int(mode[1], 8) & ~UMASK if mode else 0
            where = split(tail.strip())[0][1] if '<' in tail else ''
            return self.opened(arguments, mode, str(result), where)
        if name == 'close':
            self.open.pop(given[0][0] if isinstance(given[0], tuple) else given[0], None)
        elif name in ('dup', 'dup2', 'dup3') or name == 'fcntl' and 'F_DUPFD' in arguments:
            if stream:
                self.open[str(result)] = stream
        elif name in ('read', 'readv') and stream:
            stream.position += result
        elif name == 'lseek' and stream:
            stream.position = result
        elif name == 'splice':
            return self.splice(given, result)
        elif name in ('fsync', 'fdatasync') and stream:
            if stream.node:
                stream.node.sync(name == 'fdatasync')
            else:
                self.disk.sync_directory(stream.path)
            return f'{name} {stream.path}'
        elif stream and stream.node and name in ('write', 'pwrite64'):
            return self.put(stream, given[1][:result].encode('latin-1'),
                            int(given[3]) if name == 'pwrite64' else None)
        elif name not in HARMLESS and name not in ('write', 'pwrite64', 'writev'):
            return self.changed(name, given, stream)
        elif name == 'writev' and stream:
            raise NotImplementedError(f'{name}({arguments})')
        return None

    def paths(self, given):
        """Returns the paths of the board among the arguments."""
        found = []
        for before, part in zip([None] + given, given):
            relative = isinstance(before, tuple) and isinstance(part, str) and re.match(r'[^0-9A-Z]', part)
            if isinstance(part, str) and part.startswith('/') or relative:
                base = before[1] if isinstance(before, tuple) else '/'
                found.append(self.board_path(os.path.join(base, part)))
        return [path for path in found if path]

    def changed(self, name, given, stream):
        stream = stream if name in ('ftruncate', 'fchmod', 'fchown') else None
        paths = [stream.path] if stream else self.paths(given)
        if not paths:
            return None
        path = paths[-1]
        node = stream.node if stream else self.disk.node(path)
        self.disk.changed.update(paths)
        if name in ('ftruncate', 'truncate'):
            node.write(node.now()[0][:int(given[1])].ljust(int(given[1]), b'\0'))
        elif name.startswith('rename'):
            self.disk.change({paths[0]: None, path: self.disk.node(paths[0])})
        elif name.startswith('link'):
            # The file of a descriptor: an empty name, or its entry below /proc.
            number = given[0][0] if given[1] == '' else os.path.basename(given[1])
            node = self.open[number].node if number in self.open else self.disk.node(paths[0])
            self.disk.change({path: node})
        elif name in ('unlink', 'unlinkat', 'rmdir'):
            self.disk.change({path: None})
        elif name.startswith('mkdir'):
            self.disk.change({path: Node(None, int(given[-1], 8) & ~UMASK, 0, 0)})
        elif name in ('fchmod', 'chmod', 'fchmodat'):
            node.change(next(int(part, 8) for part in given[1:] if re.fullmatch('0[0-7]+', str(part))), None, None)
        elif name in ('fchown', 'chown', 'lchown', 'fchownat'):
            numbers = [int(part) for part in given if re.fullmatch(r'-?\d+', str(part))]
            node.change(None, *(None if number == -1 else number for number in numbers[:2]))
        else:
            raise NotImplementedError(f'{name}{given}')
        return f'{name} {" ".join(paths)}'

