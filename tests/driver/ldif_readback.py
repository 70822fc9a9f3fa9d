#!/usr/bin/python3
"""Reads LDIF with two readers this project did not write, python-ldap's ldif
module and OpenLDAP's ldapmodify (with -n it only says what it would do), and
checks that both see the records an independent reading of the expected file
gives: the same dn, controls, change type, modifications and values.

usage: ldif_readback.py EXPECTED [ACTUAL]

EXPECTED is a golden .ldif file; ACTUAL, the file under test, is EXPECTED
itself when absent (so that the golden files are checked on their own) or what
quillomat wrote for the same document. Exit status 0 when both readers accept
every record of ACTUAL and see exactly the records of EXPECTED, 1 with the
differences on standard output otherwise.
"""

import base64
import io
import os
import re
import subprocess
import sys
import tempfile

import ldap
import ldif

# ---- The reference reading: RFC 2849, strictly, of the expected file ---------


class Record:
    """One LDIF record: its dn, its controls (oid, critical, value or None),
    its kind ('content', 'add', 'delete', 'modify' or 'modrdn') and what the
    kind carries."""

    def __init__(self, dn):
        self.dn = dn
        self.controls = []
        self.raw_controls = []  # each control line's text after "control:"
        self.kind = 'content'
        self.attrs = []  # (type, value) in order: content and add records
        self.mods = []  # (operation, type, [values]): modify records
        self.newrdn = None
        self.deleteoldrdn = None
        self.newsuperior = None


class Malformed(Exception):
    pass


def logical_lines(block):
    """The lines of one record with continuation lines joined."""
    lines = []
    for raw in block:
        if raw.startswith(b' '):
            if not lines:
                raise Malformed('a record starts with a continuation line')
            lines[-1] += raw[1:]
        else:
            lines.append(raw)
    return lines


def split_line(line):
    """(type, value bytes) of an attrval-spec; URL values are refused."""
    colon = line.find(b':')
    if colon <= 0:
        raise Malformed('no type and colon in %r' % line)
    kind, rest = line[:colon].decode('utf-8'), line[colon + 1:]
    if rest.startswith(b'::'):
        return kind, base64.b64decode(rest[2:].lstrip(b' '), validate=True)
    if rest.startswith(b':<'):
        raise Malformed('a value given by URL in %r' % line)
    if rest.startswith(b':'):
        return kind, base64.b64decode(rest[1:].lstrip(b' '), validate=True)
    return kind, rest.lstrip(b' ')


CONTROL = re.compile(rb'^ *([0-2](?:\.[0-9]+)+)(?: +(true|false))?(:.*)?$', re.S)


def parse_control(rest):
    m = CONTROL.match(rest)
    if not m:
        raise Malformed('control line %r' % rest)
    oid, critical, tail = m.group(1).decode(), m.group(2) == b'true', m.group(3)
    if tail is None:
        return oid, critical, None
    if tail.startswith(b'::'):
        return oid, critical, base64.b64decode(tail[2:].lstrip(b' '), validate=True)
    if tail.startswith(b':<'):
        raise Malformed('a control value given by URL')
    return oid, critical, tail[1:].lstrip(b' ')


MOD_OPERATIONS = ('add', 'delete', 'replace', 'increment')


def parse_record(lines):
    kind, dn = split_line(lines[0])
    if kind != 'dn':
        raise Malformed('a record starts with %r' % lines[0])
    r = Record(dn)
    i = 1
    while i < len(lines) and lines[i].split(b':', 1)[0] == b'control':
        rest = lines[i].split(b':', 1)[1]
        r.raw_controls.append(rest)
        r.controls.append(parse_control(rest))
        i += 1
    if i < len(lines) and lines[i].startswith(b'changetype:'):
        r.kind = split_line(lines[i])[1].decode()
        i += 1
    elif r.controls:
        raise Malformed('controls in a content record')
    body = lines[i:]
    if r.kind in ('content', 'add'):
        r.attrs = [split_line(line) for line in body]
        if r.kind == 'content' and not r.attrs:
            raise Malformed('a content record without attributes')
    elif r.kind == 'delete':
        if body:
            raise Malformed('lines after changetype: delete')
    elif r.kind == 'modrdn':
        pairs = [split_line(line) for line in body]
        names = [k for k, _ in pairs]
        if names not in (['newrdn', 'deleteoldrdn'], ['newrdn', 'deleteoldrdn', 'newsuperior']):
            raise Malformed('a modrdn record of %r' % names)
        r.newrdn = pairs[0][1]
        if pairs[1][1] not in (b'0', b'1'):
            raise Malformed('deleteoldrdn: %r' % pairs[1][1])
        r.deleteoldrdn = pairs[1][1] == b'1'
        r.newsuperior = pairs[2][1] if len(pairs) == 3 else None
    elif r.kind == 'modify':
        j = 0
        while j < len(body):
            operation, attr = split_line(body[j])
            if operation not in MOD_OPERATIONS:
                raise Malformed('modification %r' % body[j])
            attr = attr.decode()
            values = []
            j += 1
            while j < len(body) and body[j] != b'-':
                name, value = split_line(body[j])
                if name != attr:
                    raise Malformed('a value of %s in a modification of %s' % (name, attr))
                values.append(value)
                j += 1
            if j == len(body):
                raise Malformed('a modification without its closing "-"')
            j += 1
            r.mods.append((operation, attr, values))
    else:
        raise Malformed('changetype: %s' % r.kind)
    return r


def reference_records(data):
    """The records of data, each followed by exactly one empty line."""
    if not data:
        return []
    if not data.endswith(b'\n\n') or data.startswith(b'\n') or b'\n\n\n' in data:
        raise Malformed('records are not each followed by exactly one empty line')
    if b'\r' in data:
        raise Malformed('a carriage return')
    blocks = data[:-2].split(b'\n\n')
    return [parse_record(logical_lines(b.split(b'\n'))) for b in blocks]


# ---- python-ldap ----------------------------------------------------------------


class KeepsPairs:
    """Keeps every (type, value) python-ldap's parser reads, with None between
    records."""

    def _next_key_and_value(self):
        k, v = super()._next_key_and_value()
        self.pairs.append((k, v))
        return k, v


class ChangeReader(KeepsPairs, ldif.LDIFParser):
    """python-ldap's change-record parser, keeping what it hands to
    handle_modify."""

    def __init__(self, f):
        super().__init__(f)
        self.pairs = []
        self.modifies = []

    def handle_modify(self, dn, modops, controls=None):
        self.modifies.append((dn, modops, controls))


class ContentReader(KeepsPairs, ldif.LDIFRecordList):
    def __init__(self, f):
        super().__init__(f)
        self.pairs = []
        self.modifies = []


def records_of(pairs):
    records, current = [], []
    for k, v in pairs:
        if k is None:
            if current:
                records.append(current)
            current = []
        else:
            current.append((k, v))
    if current:
        records.append(current)
    return records


def grouped(attrs):
    entry = {}
    for k, v in attrs:
        entry.setdefault(k, []).append(v)
    return entry


MOD_CODES = {'add': ldap.MOD_ADD, 'delete': ldap.MOD_DELETE, 'replace': ldap.MOD_REPLACE,
             'increment': ldap.MOD_INCREMENT}


def python_ldap_control(raw):
    """The (type, criticality, value) python-ldap gives for a control line: it
    splits the text at its first two spaces, so a value's colons stay on the
    criticality and a base64 value stays encoded."""
    text = raw.decode('utf-8').lstrip(' ')
    parts = text.split(' ', 2)
    return tuple(parts) if len(parts) == 3 else (parts[0], parts[1], None)


def check_python_ldap(data, want, problems):
    content = all(r.kind == 'content' for r in want)
    reader = ContentReader(io.BytesIO(data)) if content else ChangeReader(io.BytesIO(data))
    try:
        reader.parse() if content else reader.parse_change_records()
    except Exception as e:  # any refusal is the finding
        problems.append('python-ldap refused the file: %s: %s' % (type(e).__name__, e))
        return
    got = records_of(reader.pairs)
    if len(got) != len(want) or reader.records_read != len(want):
        problems.append('python-ldap read %d records (%d by its count), the expected file has %d' %
                        (len(got), reader.records_read, len(want)))
        return
    if content:
        expected = [(r.dn.decode(), grouped(r.attrs)) for r in want]
        if reader.all_records != expected:
            problems.append('python-ldap entries %r, expected %r' % (reader.all_records, expected))
    modifies = iter(reader.modifies)
    for n, (r, pairs) in enumerate(zip(want, got), 1):
        where = 'python-ldap, record %d' % n
        if pairs[0] != ('dn', r.dn):
            problems.append('%s: %r, expected dn %r' % (where, pairs[0], r.dn))
            continue
        rest = pairs[1:]
        controls = [v for k, v in rest[:len(r.controls)] if k == 'control']
        if controls != [c.lstrip(b' ') for c in r.raw_controls]:
            problems.append('%s: controls %r, expected %r' % (where, controls, r.raw_controls))
        rest = rest[len(r.controls):]
        if r.kind != 'content':
            if not rest or rest[0] != ('changetype', r.kind.encode()):
                problems.append('%s: %r, expected changetype %s' % (where, rest[:1], r.kind))
                continue
            rest = rest[1:]
        if r.kind in ('content', 'add'):
            if rest != r.attrs:
                problems.append('%s: attributes %r, expected %r' % (where, rest, r.attrs))
        elif r.kind == 'delete':
            if rest:
                problems.append('%s: %r after changetype: delete' % (where, rest))
        elif r.kind == 'modrdn':
            expected = [('newrdn', r.newrdn), ('deleteoldrdn', b'1' if r.deleteoldrdn else b'0')]
            if r.newsuperior is not None:
                expected.append(('newsuperior', r.newsuperior))
            if rest != expected:
                problems.append('%s: %r, expected %r' % (where, rest, expected))
        elif r.mods:
            handed = next(modifies, None)
            expected = (r.dn.decode(), [(MOD_CODES[op], attr, values or None)
                                        for op, attr, values in r.mods],
                        [python_ldap_control(c) for c in r.raw_controls])
            if handed != expected:
                problems.append('%s: handle_modify%r, expected %r' % (where, handed, expected))
        elif rest:
            problems.append('%s: %r in a modify record without modifications' % (where, rest))
    if next(modifies, None) is not None:
        problems.append('python-ldap handed out more modify records than expected')


# ---- ldapmodify -n -v -------------------------------------------------------------


def shown(value):
    """A value as ldapmodify -v prints it."""
    if any(b > 0x7f for b in value):
        return b'\tNOT ASCII (%d bytes)\n' % len(value)
    return b'\t' + value.split(b'\0', 1)[0] + b'\n'


def ldapmodify_says(r):
    """What ldapmodify -n -v prints for one record."""
    out = b''
    if r.kind in ('content', 'add'):
        # ldapmodify gathers the values of one type (in any letter case)
        # under its first spelling.
        order, values = [], {}
        for k, v in r.attrs:
            key = k.lower()
            if key not in values:
                order.append((key, k))
                values[key] = []
            values[key].append(v)
        for key, k in order:
            out += b'add ' + k.encode() + b':\n' + b''.join(shown(v) for v in values[key])
        return out + b'!adding new entry "' + r.dn + b'"\n\n'
    if r.kind == 'modify':
        for op, attr, vals in r.mods:
            out += op.encode() + b' ' + attr.encode() + b':\n' + b''.join(shown(v) for v in vals)
        return out + b'!modifying entry "' + r.dn + b'"\n\n'
    if r.kind == 'delete':
        return b'!deleting entry "' + r.dn + b'"\n\n'
    keep = b'do not keep' if r.deleteoldrdn else b'keep'
    return (b'!modifying rdn of entry "' + r.dn + b'"\n\tnew RDN: "' + r.newrdn + b'" (' + keep +
            b' existing values)\n\n')


def check_ldapmodify(data, want, problems):
    # Deliberate: records with more than one control line are left out.
    # RFC 2849 allows any number, but OpenLDAP's LDIF reader takes only the
    # first and then refuses the record ("modify operation type is missing").
    blocks = data[:-2].split(b'\n\n') if data else []
    several = [sum(1 for line in b.split(b'\n') if line.startswith(b'control:')) > 1
               for b in blocks]
    fed = b''.join(b + b'\n\n' for b, skip in zip(blocks, several) if not skip)
    kept = [r for r in want if len(r.controls) <= 1]
    content = all(r.kind == 'content' for r in want)
    with tempfile.NamedTemporaryFile(suffix='.ldif') as f:
        f.write(fed)
        f.flush()
        env = {'PATH': '/usr/bin:/bin', 'LDAPNOINIT': '1'}
        args = ['ldapmodify'] + (['-a'] if content else []) + ['-n', '-v', '-f', f.name]
        run = subprocess.run(args, capture_output=True, env=env)
    expected = b''.join(ldapmodify_says(r) for r in kept)
    if run.returncode != 0 or run.stderr:
        problems.append('ldapmodify refused the file (status %d): %s' %
                        (run.returncode, run.stderr.decode(errors='replace').strip()))
    if run.stdout != expected:
        problems.append('ldapmodify said:\n%s\nexpected:\n%s' %
                        (run.stdout.decode(errors='replace'), expected.decode(errors='replace')))


def main(argv):
    if len(argv) not in (2, 3):
        print(__doc__)
        return 2
    with open(argv[1], 'rb') as f:
        want = reference_records(f.read())
    with open(argv[-1], 'rb') as f:
        data = f.read()
    problems = []
    check_python_ldap(data, want, problems)
    check_ldapmodify(data, want, problems)
    for p in problems:
        print('%s: %s' % (argv[-1], p))
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
