#!/usr/bin/python3
"""bench/check_documents.py - checks the benchmark documents and what
quillomat makes of them, so that a figure bench/run reports is a figure for
a clean conversion of what it claims to measure:

  - the v1 documents are still the bytes earlier benchmark figures were
    measured on (their digests are pinned), and every kind is the same
    bytes for the same SIZE and SEED;
  - quillomat converts each kind with exit status 0 and nothing on standard
    error;
  - python-ldap's LDIF reader takes every record; the records are the
    document's entries or operations, kind for kind, and every base64 value
    comes out as its bytes;
  - a batchResponse holds the v1 document's entries, and a batchRequest
    mixes its operations in the intended proportions.

Usage: check_documents.py GEN_DSML QUILLOMAT   (run by ctest)
"""
import base64
import hashlib
import io
import re
import subprocess
import sys

import ldif

# gen_dsml SIZE SEED -> sha256 of the v1 document, as generated when the
# benchmark figures in docs/performance.md were measured.
V1_DIGESTS = {
    ('1M', '1'): '5268de062b392b8b2d41c5c268366baeda9a6048415e7f41b6a7658c688c1c93',
    ('100K', '7'): '75e6099261d52acc65e30938778204bc4f71abf656121a1ce69ceb27397ac6e7',
}

# kind, gen_dsml option, element of one record in the document
KINDS = [
    ('v1', [], b'<dsml:entry '),
    ('v2-response', ['--v2-response'], b'<searchResultEntry '),
    ('v2-request', ['--v2-request'], None),
]
SEEDS = ['1', '17']
SIZE = '1M'

# batchRequest operation -> LDIF changetype, and its share of the batch
OPERATIONS = {
    b'<addRequest ': ('add', 0.5),
    b'<modifyRequest ': ('modify', 0.3),
    b'<modDNRequest ': ('modrdn', 0.1),
    b'<delRequest ': ('delete', 0.1),
}
SHARE_TOLERANCE = 0.05

BASE64_VALUE = re.compile(
    rb'<(?:dsml:)?value (?:xsi:type="xsd:base64Binary"|encoding="base64")>([^<]*)</')
BINARY_TYPES = ('jpegPhoto', 'userPassword')


def generate(gen, size, seed, option):
    return subprocess.run([gen, size, seed] + option, check=True, capture_output=True).stdout


def convert(quillomat, doc):
    run = subprocess.run([quillomat, '-'], input=doc, capture_output=True)
    if run.returncode != 0 or run.stderr:
        raise AssertionError('quillomat: exit status %d, %r' % (run.returncode, run.stderr[:300]))
    return run.stdout


def as_written(value):
    """A value as quillomat writes it: a plain value (first byte printable
    ASCII other than space or colon, printable up to a NUL) stops at the NUL,
    deliberately; any other value is written whole."""
    if not value or value[0] in b': ' or not 0x21 <= value[0] <= 0x7e:
        return value
    run = 0
    while run < len(value) and 0x20 <= value[run] <= 0x7e:
        run += 1
    return value[:run] if run < len(value) and value[run] == 0 else value


def base64_values(doc):
    return sorted(as_written(base64.b64decode(re.sub(rb'\s', b'', m)))
                  for m in BASE64_VALUE.findall(doc))


def content_records(text):
    records = ldif.LDIFRecordList(io.BytesIO(text), process_url_schemes=[])
    records.parse()
    return records.all_records


class ChangeReader(ldif.LDIFParser):
    """Reads change records; python-ldap hands only modify records over."""

    def __init__(self, text):
        super().__init__(io.BytesIO(text), process_url_schemes=[])
        self.modifies = []

    def handle_modify(self, dn, modops, controls=None):
        self.modifies.append((dn, modops))


def folded(record):
    """A content record with its attribute names in lower case: v1 writes
    objectclass, v2 objectClass."""
    return record[0], {name.lower(): values for name, values in record[1].items()}


def check_entries(doc, out, element):
    records = content_records(out)
    assert len(records) == doc.count(element), (len(records), doc.count(element))
    photos = sorted(v for _, entry in records for v in entry.get('jpegPhoto', []))
    assert photos == base64_values(doc), 'base64 values differ'
    return records


def check_batch(doc, out):
    reader = ChangeReader(out)
    reader.parse_change_records()
    counts = check_operation_counts(doc, reader)
    check_batch_values(doc, out, reader, counts)
    modrdns = check_moves_and_renames(out, counts)
    check_new_uids(out, counts, modrdns)
    check_names_live_entries(out)


def check_operation_counts(doc, reader):
    """One change record per operation, in the intended proportions."""
    counts = {kind: doc.count(element) for element, (kind, _) in OPERATIONS.items()}
    assert dict(reader.changetype_counter) == counts, (reader.changetype_counter, counts)
    total = sum(counts.values())
    for kind, share in OPERATIONS.values():
        assert abs(counts[kind] / total - share) <= SHARE_TOLERANCE, (kind, counts[kind], total)
    return counts


def check_batch_values(doc, out, reader, counts):
    """The add records, read again as content records, and the modify
    records give back every base64 value; the passwords are hashes."""
    adds = b'\n\n'.join(r.replace(b'\nchangetype: add', b'')
                         for r in out.split(b'\n\n') if b'\nchangetype: add\n' in r)
    added = content_records(adds + b'\n')
    assert len(added) == counts['add']
    modified = [(name, v) for _, ops in reader.modifies for _, name, vs in ops
                if name in BINARY_TYPES for v in vs]
    values = [v for _, entry in added for v in entry.get('jpegPhoto', [])]
    values += [v for _, v in modified]
    assert sorted(values) == base64_values(doc), 'base64 values differ'
    passwords = [v for name, v in modified if name == 'userPassword']
    assert passwords and all(re.fullmatch(rb'\{SSHA\}[A-Za-z0-9+/]{32}', v) for v in passwords)


def check_moves_and_renames(out, counts):
    """A move keeps the RDN and names another department; a rename gives a
    new uid in place. Returns (rdn, department, new rdn, new department)
    for each, the last empty for a rename."""
    modrdns = re.findall(
        rb'^dn: (uid=user\d{7}),ou=([A-Za-z]+),dc=example,dc=com\nchangetype: modrdn\n'
        rb'newrdn: (uid=user\d{7})\ndeleteoldrdn: [01]\n'
        rb'(?:newsuperior: ou=([A-Za-z]+),dc=example,dc=com\n)?\n', out + b'\n', re.M)
    assert len(modrdns) == counts['modrdn'], (len(modrdns), counts['modrdn'])
    moves = sum(1 for m in modrdns if m[3])
    assert 0 < moves < len(modrdns), 'moves and renames both present'
    for rdn, department, new_rdn, new_department in modrdns:
        if new_department:
            assert new_rdn == rdn and new_department != department, (rdn, department)
        else:
            assert new_rdn != rdn, rdn
    return modrdns


def check_new_uids(out, counts, modrdns):
    """Every uid an add or a rename brings in is new to the batch."""
    introduced = re.findall(rb'^dn: (uid=user\d{7}),.*\nchangetype: add$|^newrdn: (uid=user\d{7})\n'
                            rb'deleteoldrdn: [01]\n\n', out + b'\n', re.M)
    uids = [add or rename for add, rename in introduced]
    renames = sum(1 for m in modrdns if not m[3])
    assert len(uids) == counts['add'] + renames, (len(uids), counts['add'], renames)
    assert len(set(uids)) == len(uids), 'a uid brought in twice'


def check_names_live_entries(out):
    """Every operation but an add names an entry the batch has added (under
    its current DN) and not deleted."""
    live = set()
    for record in out.split(b'\n\n'):
        if not record.strip():
            continue
        lines = dict(line.split(b': ', 1) for line in record.split(b'\n') if b': ' in line)
        dn, changetype = lines[b'dn'], lines[b'changetype']
        if changetype == b'add':
            assert dn not in live, dn
            live.add(dn)
            continue
        assert dn in live, (changetype, dn)
        if changetype == b'delete':
            live.remove(dn)
        elif changetype == b'modrdn':
            live.remove(dn)
            parent = lines.get(b'newsuperior', dn.split(b',', 1)[1])
            live.add(lines[b'newrdn'] + b',' + parent)


def main(gen, quillomat):
    for (size, seed), digest in V1_DIGESTS.items():
        got = hashlib.sha256(generate(gen, size, seed, [])).hexdigest()
        assert got == digest, 'v1 document %s %s changed: %s' % (size, seed, got)
    for seed in SEEDS:
        v1_records = None
        for kind, option, element in KINDS:
            doc = generate(gen, SIZE, seed, option)
            assert doc == generate(gen, SIZE, seed, option), '%s is not deterministic' % kind
            assert 1 << 20 <= len(doc) < (1 << 20) + 16384, (kind, len(doc))
            out = convert(quillomat, doc)
            if element is None:
                check_batch(doc, out)
                continue
            records = check_entries(doc, out, element)
            if v1_records is None:
                v1_records = records
                continue
            # The same entries as the v1 document, for as long as it lasts.
            assert len(records) > len(v1_records)
            for a, b in zip(v1_records, records):
                assert folded(a) == folded(b), (a[0], b[0])
        print('seed %s: every kind converts cleanly' % seed)


if __name__ == '__main__':
    if len(sys.argv) != 3:
        sys.exit('usage: check_documents.py GEN_DSML QUILLOMAT')
    main(sys.argv[1], sys.argv[2])
