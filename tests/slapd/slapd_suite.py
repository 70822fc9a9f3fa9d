#!/usr/bin/python3
"""Loads quillomat's LDIF into a real directory server and reads it back.

    slapd_suite.py CHECK QUILLOMAT SOURCE_DIR

CHECK is one of
  examples  the shipped examples: people.dsml and search-response.dsml
            each through ldapadd into a private slapd; then the changes
            of changes.dsml through ldapmodify onto the directory of
            people.dsml, which must then hold what search-response.dsml
            says a search of it answers;
  ldapadd   a generated export of more than 500 entries, the same way;
  slapadd   the same export through slapadd into a fresh database, read
            back with slapcat.
Every value read back is compared byte for byte with the DSML, which this
script parses on its own (xml.etree), not with quillomat.

The slapd runs on 127.0.0.1 at a free port, with its configuration and mdb
database in a temporary directory; the server is stopped and the directory
removed on every path out, a failure or a signal included.

Exit status: 0 passed, 77 skipped (slapd, its tools, openssl or python3-ldap
missing; a failure instead when QUILLOMAT_REQUIRE_SLAPD is set), 1 failed.
"""

import base64
import binascii
import ctypes
import glob
import io
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import export_generator  # noqa: E402

try:
    import ldap.dn
    import ldif
except ImportError:  # reported as a skip by missing_tools()
    ldap = ldif = None

EXIT_PASSED = 0
EXIT_FAILED = 1
EXIT_SKIPPED = 77

# The options the suite converts with: output that any LDIF reader loads
# as it stands.
STRICT = ["--strict"]

SLAPD = "/usr/sbin/slapd"
SLAPADD = "/usr/sbin/slapadd"
SLAPCAT = "/usr/sbin/slapcat"
MODULE_DIR = "/usr/lib/ldap"
SCHEMA_DIR = "/etc/ldap/schema"
SCHEMAS = ("core", "cosine", "inetorgperson")
ROOT_PASSWORD = "quillomat-test"

PORT_ATTEMPTS = 5
START_TIMEOUT = 15.0
STOP_TIMEOUT = 10.0
TOOL_TIMEOUT = 120

# Attributes slapadd adds to every entry, which slapcat prints and the
# DSML cannot hold.
OPERATIONAL = ("structuralObjectClass", "entryUUID", "creatorsName", "createTimestamp",
               "entryCSN", "modifiersName", "modifyTimestamp", "contextCSN")

# Object classes for the entries above the documents' own, by RDN type.
ANCESTOR_CLASSES = {
    "dc": [b"top", b"domain"],
    "ou": [b"top", b"organizationalUnit"],
    "o": [b"top", b"organization"],
}

# The shipped examples: documents of entries, loaded as they are, and the
# story they tell together: the changes applied to the directory of the
# export give what the search response says a search of it answers.
CONTENT_EXAMPLES = ("people.dsml", "search-response.dsml")
STORY_EXPORT = "people.dsml"
STORY_CHANGES = "changes.dsml"
STORY_SEARCH = "search-response.dsml"
STORY_BASE = "ou=People,dc=example,dc=com"

# At most this many differences are listed; the count of all is given.
PROBLEMS_SHOWN = 25


class Failure(Exception):
    """The check failed; the message says where and why."""


class Interrupted(BaseException):
    """A signal arrived: unwind so that every cleanup runs."""


def log(text):
    print(text, flush=True)


# --------------------------------------------------------------------------
# Processes

def client_environment():
    # LDAPNOINIT: the LDAP tools read neither ldap.conf nor ~/.ldaprc, so the
    # machine's settings (a BASE, a URI, TLS demands) cannot change a run.
    env = dict(os.environ, LDAPNOINIT="1")
    return env


def run(argv, what, *, stdin=None, env=None, check=True):
    """Run argv to completion; on a non-zero status raise Failure naming what."""
    try:
        result = subprocess.run(argv, input=stdin, capture_output=True, timeout=TOOL_TIMEOUT,
                                env=env if env is not None else client_environment())
    except subprocess.TimeoutExpired as timeout:
        raise Failure("%s: no answer after %d s: %s"
                      % (what, TOOL_TIMEOUT, " ".join(argv))) from timeout
    if check and result.returncode != 0:
        raise Failure("%s failed (status %d): %s\n%s" % (
            what, result.returncode, " ".join(argv), excerpt(result.stderr or result.stdout)))
    return result


def excerpt(output, lines=30, width=200):
    """The last lines of a tool's output, each cut short: a tool may echo a
    whole record of base64."""
    shown = output.decode("utf-8", "replace").rstrip("\n").split("\n")[-lines:]
    return "\n".join(line if len(line) <= width else line[:width] + "..." for line in shown)


def die_with_parent():
    # Runs in the child before slapd starts: should this script be killed
    # outright (SIGKILL leaves no chance to clean up), slapd goes with it
    # instead of holding the port.
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def raise_interrupted(signum, _frame):
    raise Interrupted("signal %d" % signum)


def missing_tools():
    missing = [path for path in (SLAPD, SLAPADD, SLAPCAT) if not os.access(path, os.X_OK)]
    missing += [tool for tool in ("ldapadd", "ldapsearch", "openssl") if shutil.which(tool) is None]
    if ldif is None:
        missing.append("python3-ldap (the ldap and ldif modules)")
    return missing


# --------------------------------------------------------------------------
# Entries and their comparison

class Entry:
    """A DN and its attributes: lower-case name -> (name as written, [bytes])."""

    def __init__(self, dn):
        self.dn = dn
        self.attributes = {}

    def add(self, name, value):
        self.attributes.setdefault(name.lower(), (name, []))[1].append(value)

    def value_count(self):
        return sum(len(values) for _, values in self.attributes.values())


def dn_key(dn):
    """The DN as RDNs of (lower-case type, exact value): a server may write a
    DN back with other escapes ("\\," as "\\2C") but never other values."""
    try:
        rdns = ldap.dn.str2dn(dn)
    except ldap.DECODING_ERROR:
        return ("unparsed", dn)
    return tuple(tuple(sorted((kind.lower(), value) for kind, value, _ in rdn)) for rdn in rdns)


def local_name(tag):
    return tag.rsplit("}", 1)[-1].lower()


def read_dsml(path):
    """The entries of a DSML v1 document, or the search result entries of a
    DSML v2 response, read without quillomat: values exactly as the
    document holds them, base64 decoded."""
    entries = []
    in_entries = False
    for event, element in ElementTree.iterparse(path, events=("start", "end")):
        name = local_name(element.tag)
        if name == "directory-entries":
            in_entries = event == "start"
        elif event == "end" and name == "entry" and in_entries:
            entries.append(dsml_entry(element))
            element.clear()
        elif event == "end" and name == "searchresultentry":
            entries.append(dsml_entry(element))
            element.clear()
    return entries


def dsml_entry(element):
    entry = Entry(element.get("dn"))
    for child in element:
        kind = local_name(child.tag)
        if kind == "objectclass":
            for value in child:
                if local_name(value.tag) == "oc-value":
                    entry.add("objectclass", (value.text or "").encode("utf-8"))
        elif kind == "attr":
            for value in child:
                if local_name(value.tag) == "value":
                    entry.add(child.get("name"), dsml_value(value))
    return entry


def dsml_value(element):
    text = element.text or ""
    kind = next((value for name, value in element.attrib.items()
                 if local_name(name) == "type"), "")
    if element.get("encoding") == "base64" or kind.rsplit(":", 1)[-1] == "base64Binary":
        return base64.b64decode("".join(text.split()), validate=True)
    return text.encode("utf-8")


def read_ldif(data, ignored=()):
    """The records of LDIF data, parsed by python-ldap's reader."""
    parser = ldif.LDIFRecordList(io.BytesIO(data), ignored_attr_types=list(ignored))
    parser.parse()
    entries = []
    for dn, attributes in parser.all_records:
        entry = Entry(dn)
        for name, values in attributes.items():
            for value in values:
                entry.add(name, value)
        entries.append(entry)
    return entries


def describe(value):
    shown = value[:48]
    return "%d bytes %r%s" % (len(value), shown, "..." if len(value) > len(shown) else "")


def first_difference(left, right):
    for offset, (a, b) in enumerate(zip(left, right)):
        if a != b:
            return ("first difference at byte %d (0x%02x in the DSML, 0x%02x read back)"
                    % (offset, a, b))
    return "one is a prefix of the other (%d and %d bytes)" % (len(left), len(right))


def compare_attributes(want, got, where):
    problems = []
    for name in sorted(set(want.attributes) | set(got.attributes)):
        shown, wanted = want.attributes.get(name, (None, []))
        shown = shown or got.attributes[name][0]
        found = list(got.attributes.get(name, (None, []))[1])
        missing = []
        for value in wanted:
            if value in found:
                found.remove(value)
            else:
                missing.append(value)
        if not missing and not found:
            continue
        lines = ['entry "%s", attribute "%s": %d value(s) of the DSML not in %s, %d value(s) in %s'
                 ' not in the DSML' % (want.dn, shown, len(missing), where, len(found), where)]
        lines += ["    DSML:      " + describe(value) for value in missing[:3]]
        lines += ["    read back: " + describe(value) for value in found[:3]]
        if len(missing) == 1 and len(found) == 1:
            lines.append("    " + first_difference(missing[0], found[0]))
        problems.append("\n".join(lines))
    return problems


def compare(expected, actual, where):
    """Every difference between the DSML's entries and those read back."""
    problems = []
    by_key = {}
    for entry in actual:
        by_key[dn_key(entry.dn)] = entry
    for entry in expected:
        got = by_key.pop(dn_key(entry.dn), None)
        if got is None:
            problems.append('entry "%s": not in %s' % (entry.dn, where))
        else:
            problems += compare_attributes(entry, got, where)
    problems += ['entry "%s": in %s but not in the DSML' % (entry.dn, where)
                 for entry in by_key.values()]
    return problems


def demand_equal(expected, actual, where):
    problems = compare(expected, actual, where)
    if problems:
        shown = problems[:PROBLEMS_SHOWN]
        raise Failure("%d difference(s) between the DSML and %s:\n%s%s" % (
            len(problems), where, "\n".join(shown),
            "\n..." if len(problems) > len(shown) else ""))
    values = sum(entry.value_count() for entry in expected)
    size = sum(len(v) for entry in expected for _, vs in entry.attributes.values() for v in vs)
    log("  %s: %d entries, %d values (%d bytes) equal byte for byte to the DSML"
        % (where, len(expected), values, size))


# --------------------------------------------------------------------------
# The directory around the documents' entries

def without(entries, dns):
    """entries less those named in dns."""
    keys = {dn_key(dn) for dn in dns}
    return [entry for entry in entries if dn_key(entry.dn) not in keys]


def suffixes_of(entries):
    """The naming contexts: the last RDN of every DN, in order of appearance."""
    found = []
    for entry in entries:
        suffix = ldap.dn.dn2str(ldap.dn.str2dn(entry.dn)[-1:])
        if suffix not in found:
            found.append(suffix)
    return found


def ancestors_ldif(entries):
    """LDIF for every entry above the documents' own that the directory needs
    (dc=com above dc=example,dc=com, say), parents first, and their DNs."""
    present = {dn_key(entry.dn) for entry in entries}
    records = io.StringIO()
    writer = ldif.LDIFWriter(records)
    added = []
    for entry in entries:
        rdns = ldap.dn.str2dn(entry.dn)
        for depth in range(len(rdns) - 1, 0, -1):
            ancestor = rdns[depth:]
            dn = ldap.dn.dn2str(ancestor)
            if dn_key(dn) in present:
                continue
            present.add(dn_key(dn))
            if len(ancestor[0]) != 1 or ancestor[0][0][0].lower() not in ANCESTOR_CLASSES:
                raise Failure('no rule for making the entry "%s" above "%s"' % (dn, entry.dn))
            kind, value, _ = ancestor[0][0]
            attributes = {"objectClass": ANCESTOR_CLASSES[kind.lower()],
                          kind: [value.encode("utf-8")]}
            writer.unparse(dn, attributes)
            added.append(dn)
    return records.getvalue().encode("utf-8"), added


def write_config(workdir, suffixes):
    """A slapd.conf with one mdb database holding every suffix; the root DN
    and every file under workdir."""
    database = os.path.join(workdir, "db")
    os.mkdir(database)
    lines = ["include %s/%s.schema" % (SCHEMA_DIR, schema) for schema in SCHEMAS]
    if os.path.exists(os.path.join(MODULE_DIR, "back_mdb.so")):
        lines += ["modulepath " + MODULE_DIR, "moduleload back_mdb"]
    lines += ["pidfile %s/slapd.pid" % workdir,
              "argsfile %s/slapd.args" % workdir,
              "database mdb"]
    lines += ['suffix "%s"' % suffix for suffix in suffixes]
    lines += ['rootdn "%s"' % root_dn(suffixes),
              "rootpw " + ROOT_PASSWORD,
              "directory " + database,
              # A scratch database: no waiting for the disk at each commit.
              "dbnosync",
              # Sparse: the map only reserves address space.
              "maxsize 1073741824"]
    path = os.path.join(workdir, "slapd.conf")
    with open(path, "w", encoding="utf-8") as out:
        out.write("\n".join(lines) + "\n")
    return path


def root_dn(suffixes):
    return "cn=admin," + suffixes[0]


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Server:
    """A private slapd over config, listening on 127.0.0.1 only."""

    def __init__(self, workdir, config, suffixes):
        self.workdir = workdir
        self.config = config
        self.suffixes = suffixes
        self.process = None
        self.url = None
        self.log_path = os.path.join(workdir, "slapd.log")

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        for _ in range(PORT_ATTEMPTS):
            port = free_port()
            self.url = "ldap://127.0.0.1:%d/" % port
            with open(self.log_path, "wb") as server_log:
                # -d none: stay in the foreground, print only errors.
                self.process = subprocess.Popen(
                    [SLAPD, "-d", "none", "-f", self.config, "-h", self.url],
                    stdin=subprocess.DEVNULL, stdout=server_log, stderr=subprocess.STDOUT,
                    preexec_fn=die_with_parent)
            if self.wait_ready(port):
                log("  slapd %d listening at %s" % (self.process.pid, self.url))
                return
            self.stop()
            text = self.server_log()
            if "errno=98" not in text:  # anything but a port taken meanwhile
                raise Failure("slapd did not start:\n" + text)
        raise Failure("slapd found no free port in %d attempts" % PORT_ATTEMPTS)

    def wait_ready(self, port):
        """Wait until slapd answers as the server of our suffixes."""
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                return False
            try:
                socket.create_connection(("127.0.0.1", port), timeout=0.5).close()
            except OSError:
                time.sleep(0.02)
                continue
            # Someone else may hold the port: only our slapd names our suffix.
            answer = run(["ldapsearch", "-LLL", "-x", "-H", self.url, "-b", "", "-s", "base",
                          "namingContexts"], "root DSE", check=False)
            if answer.returncode == 0 and self.suffixes[0].encode() in answer.stdout:
                return True
            time.sleep(0.05)
        raise Failure("slapd did not answer within %.0f s:\n%s"
                      % (START_TIMEOUT, self.server_log()))

    def stop(self):
        if self.process is None:
            return
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(STOP_TIMEOUT)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process = None

    def server_log(self):
        try:
            with open(self.log_path, encoding="utf-8", errors="replace") as text:
                return text.read()[-4000:]
        except OSError:
            return "(no log)"

    def bind_arguments(self):
        return ["-x", "-H", self.url, "-D", root_dn(self.suffixes), "-w", ROOT_PASSWORD]

    def add(self, path, what):
        """ldapadd every record of path, going on after a refused one; return
        {DN: slapd's reason} for the records it refused."""
        rejects = path + ".rejects"
        result = run(["ldapadd", *self.bind_arguments(), "-c", "-S", rejects, "-f", path],
                     what, check=False)
        refused = read_rejects(rejects)
        if result.returncode != 0 and not refused:
            raise Failure("%s: ldapadd failed (status %d):\n%s" % (
                what, result.returncode, excerpt(result.stderr)))
        return refused

    def modify(self, path, what):
        """ldapmodify every change of path, stopping at the first refused."""
        result = run(["ldapmodify", *self.bind_arguments(), "-f", path], what, check=False)
        if result.returncode != 0:
            raise Failure("%s: ldapmodify failed (status %d):\n%s" % (
                what, result.returncode, excerpt(result.stderr)))

    def search(self, base, attributes):
        """The entries one level below base, with the attributes asked for."""
        found = run(["ldapsearch", "-LLL", "-o", "ldif-wrap=no", *self.bind_arguments(),
                     "-b", base, "-s", "one", "(objectClass=*)", *attributes], "ldapsearch")
        return read_ldif(found.stdout)

    def read_all(self):
        entries = []
        for suffix in self.suffixes:
            found = run(["ldapsearch", "-LLL", "-o", "ldif-wrap=no", *self.bind_arguments(),
                         "-b", suffix, "(objectClass=*)", "*"], "ldapsearch")
            entries += read_ldif(found.stdout)
        return entries


def read_rejects(path):
    """The records ldapadd -S wrote: each one is preceded by "# Error: ..."."""
    try:
        with open(path, "rb") as data:
            text = data.read()
    except FileNotFoundError:
        return {}
    refused = {}
    for block in text.split(b"\n\n"):
        lines = block.strip(b"\n").split(b"\n")
        reasons = [line[len(b"# Error: "):].decode("utf-8", "replace")
                   for line in lines if line.startswith(b"# Error: ")]
        record = b"\n".join(line for line in lines if not line.startswith(b"#"))
        if record.strip():
            refused[rejected_dn(record)] = "; ".join(reasons)
    return refused


def rejected_dn(record):
    """The DN of a refused record; its first line when it is not LDIF."""
    try:
        return read_ldif(record + b"\n")[0].dn
    except (ValueError, IndexError, binascii.Error):
        return "(not LDIF) " + record.split(b"\n", 1)[0][:200].decode("utf-8", "replace")


def demand_no_rejects(refused, what):
    if refused:
        raise Failure("slapd refused %d record(s) of %s:\n%s" % (
            len(refused), what, "\n".join('  "%s": %s' % item for item in sorted(refused.items()))))


# --------------------------------------------------------------------------
# quillomat

def quillomat_environment():
    # The C locale: UTF-8 output, whatever the machine's locale.
    env = {k: v for k, v in os.environ.items() if k not in ("LANG", "LC_CTYPE")}
    env["LC_ALL"] = "C"
    return env


def convert(quillomat, options, dsml, ldif_path):
    result = run([quillomat, *options, dsml], "quillomat %s %s" % (" ".join(options), dsml),
                 env=quillomat_environment())
    with open(ldif_path, "wb") as out:
        out.write(result.stdout)


# --------------------------------------------------------------------------
# Checks

class Run:
    def __init__(self, quillomat, source_dir, workdir):
        self.quillomat = quillomat
        self.source_dir = source_dir
        self.workdir = workdir
        self.options = STRICT

    def directory(self, name):
        path = os.path.join(self.workdir, name)
        os.mkdir(path)
        return path

    def export(self):
        """Write the generated export; return its path."""
        certificates = export_generator.make_certificates(
            export_generator.DEFAULT_SEED, self.directory("certificates"))
        data, counts = export_generator.generate(export_generator.DEFAULT_SEED, certificates)
        path = os.path.join(self.workdir, "export.dsml")
        with open(path, "wb") as out:
            out.write(data)
        log("export: %d bytes; %s" % (len(data), ", ".join(
            "%s %d" % item for item in sorted(counts.items()))))
        return path

    def prepare(self, dsml, name):
        """Everything one document needs to load, in a directory of its own."""
        return Load(self, dsml, self.directory(name))


class Load:
    """A document's entries as the DSML holds them, quillomat's LDIF of it,
    the LDIF of the entries above them, and the directory's suffixes."""

    def __init__(self, ctx, dsml, workdir):
        self.workdir = workdir
        self.expected = read_dsml(dsml)
        self.suffixes = suffixes_of(self.expected)
        self.ldif = os.path.join(workdir, "quillomat.ldif")
        convert(ctx.quillomat, ctx.options, dsml, self.ldif)
        above, self.above_dns = ancestors_ldif(self.expected)
        self.above_ldif = os.path.join(workdir, "ancestors.ldif")
        with open(self.above_ldif, "wb") as out:
            out.write(above)

    def server(self):
        return Server(self.workdir, write_config(self.workdir, self.suffixes), self.suffixes)


def example(ctx, name):
    path = os.path.join(ctx.source_dir, "examples", name)
    if not os.path.exists(path):
        raise Failure("no example " + path)
    return path


def check_examples(ctx):
    shipped = {os.path.basename(path)
               for path in glob.glob(os.path.join(ctx.source_dir, "examples", "*.dsml"))}
    unchecked = shipped - set(CONTENT_EXAMPLES) - {STORY_CHANGES}
    if unchecked:
        raise Failure("examples this suite does not check: " + ", ".join(sorted(unchecked)))
    for name in CONTENT_EXAMPLES:
        log("example %s" % name)
        load = ctx.prepare(example(ctx, name), name)
        with load.server() as server:
            demand_no_rejects(server.add(load.above_ldif, "the entries above " + name),
                              "their ancestors")
            demand_no_rejects(server.add(load.ldif, "ldapadd " + name), name)
            loaded = without(server.read_all(), load.above_dns)
        demand_equal(load.expected, loaded, "slapd (ldapadd, ldapsearch)")
    check_story(ctx)


def check_story(ctx):
    """The changes, applied by ldapmodify to the directory of the export,
    leave it as the search response describes it."""
    log("examples %s, then %s, give %s" % (STORY_EXPORT, STORY_CHANGES, STORY_SEARCH))
    load = ctx.prepare(example(ctx, STORY_EXPORT), "story")
    changes = os.path.join(load.workdir, "changes.ldif")
    convert(ctx.quillomat, ctx.options, example(ctx, STORY_CHANGES), changes)
    answer = read_dsml(example(ctx, STORY_SEARCH))
    asked = sorted({shown for entry in answer for shown, _ in entry.attributes.values()})
    with load.server() as server:
        demand_no_rejects(server.add(load.above_ldif, "the entries above " + STORY_EXPORT),
                          "their ancestors")
        demand_no_rejects(server.add(load.ldif, "ldapadd " + STORY_EXPORT), STORY_EXPORT)
        server.modify(changes, "ldapmodify " + STORY_CHANGES)
        found = server.search(STORY_BASE, asked)
    demand_equal(answer, found, "slapd after %s (ldapmodify, ldapsearch)" % STORY_CHANGES)


def check_ldapadd(ctx):
    load = ctx.prepare(ctx.export(), "server")
    with load.server() as server:
        demand_no_rejects(server.add(load.above_ldif, "the entries above the export"),
                          "their ancestors")
        demand_no_rejects(server.add(load.ldif, "ldapadd of the export"), "the export")
        loaded = without(server.read_all(), load.above_dns)
    demand_equal(load.expected, loaded, "slapd (ldapadd, ldapsearch)")


def check_slapadd(ctx):
    load = ctx.prepare(ctx.export(), "offline")
    config = write_config(load.workdir, load.suffixes)
    # Two runs into the one database, so that quillomat's file is loaded
    # exactly as it was written.
    run([SLAPADD, "-f", config, "-n", "1", "-l", load.above_ldif],
        "slapadd of the entries above the export")
    run([SLAPADD, "-f", config, "-n", "1", "-l", load.ldif], "slapadd of the export")
    dumped = run([SLAPCAT, "-f", config, "-n", "1", "-o", "ldif_wrap=no"], "slapcat")
    loaded = without(read_ldif(dumped.stdout, OPERATIONAL), load.above_dns)
    demand_equal(load.expected, loaded, "slapcat (slapadd)")


CHECKS = {"examples": check_examples, "ldapadd": check_ldapadd, "slapadd": check_slapadd}


def skip(missing):
    text = "%s not installed (tools/deps installs slapd, ldap-utils, openssl and python3-ldap)" % (
        ", ".join(missing))
    if os.environ.get("QUILLOMAT_REQUIRE_SLAPD", "") not in ("", "0"):
        log("FAILED: " + text + "; QUILLOMAT_REQUIRE_SLAPD demands this suite run")
        return EXIT_FAILED
    log("SKIPPED: " + text)
    return EXIT_SKIPPED


def main(argv):
    if len(argv) != 4 or argv[1] not in CHECKS:
        print("usage: %s {%s} QUILLOMAT SOURCE_DIR" % (argv[0], "|".join(CHECKS)), file=sys.stderr)
        return EXIT_FAILED
    missing = missing_tools()
    if missing:
        return skip(missing)
    for signum in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(signum, raise_interrupted)
    started = time.monotonic()
    workdir = None
    try:
        workdir = tempfile.mkdtemp(prefix="quillomat-slapd-")
        CHECKS[argv[1]](Run(os.path.abspath(argv[2]), os.path.abspath(argv[3]), workdir))
    except Failure as failure:
        log("FAILED: %s" % failure)
        return EXIT_FAILED
    except Interrupted as interrupted:
        log("FAILED: interrupted by %s" % interrupted)
        return EXIT_FAILED
    finally:
        if workdir is not None:
            shutil.rmtree(workdir, ignore_errors=True)
    log("passed in %.1f s" % (time.monotonic() - started))
    return EXIT_PASSED


if __name__ == "__main__":
    sys.exit(main(sys.argv))
