#!/usr/bin/env python3
"""A minimal replication client, written from replication.md and data-format.md alone.

It takes a snapshot (asking for no compression), follows the BATCH stream into
in-memory tables keyed by each table's master key, and exits 0 once live,
printing the row count of every table. With --expect-snapshot/--expect-log it
also loads those files into a second set of tables and compares the two.
Any refusal (ERROR, BYE, gap, malformed frame, timeout) prints why and exits 1;
it never reconnects, since its job is to prove one session end to end.
Standard library only.
"""
import argparse, json, re, socket, ssl, struct, sys, time, zlib

HELLO, WELCOME, SNAP_BEGIN, SNAP_DATA, SNAP_END, BATCH, HEARTBEAT, BYE, ERROR, REJECTED, TRANSACTION, ANSWER = range(1, 13)
PROTOCOL = 3
MAX_FRAME = 64 << 20
HEARTBEAT_EVERY, DEAD_AFTER, QUIET_FOR_LIVE = 1.0, 5.0, 1.5


class Fail(Exception):
    """Ends the run with exit 1 and the message."""


class BatchError(Exception):
    pass


def load_schema(path):
    schema, n = {}, 0
    try:
        with open(path, encoding="utf-8") as f:
            doc = json.load(f)
        for n, t in enumerate(doc["tables"], 1):
            cols = {c["name"]: c for c in t["columns"]}
            if t["name"] in schema or not t["key"] or any(k not in cols for k in t["key"]):
                raise ValueError("a repeated name or a bad key")
            schema[t["name"]] = {"key": list(t["key"]), "cols": cols, "order": n}
    except (OSError, ValueError, KeyError, TypeError, AttributeError) as e:
        raise Fail(f"{path}: table entry {n}: {e!r}" if n else f"{path}: {e}")
    return schema


def norm(col, v):
    """A key value in one canonical form, so 5 and "5" of a 64-bit column are one key."""
    t = col["type"]
    if v is None:
        raise BatchError(f"column '{col['name']}' is a key column and cannot be null")
    if t in (1, 2):
        if isinstance(v, str) and t == 2 and re.fullmatch(r"-?[0-9]+", v):
            v = int(v)
        if not isinstance(v, int) or isinstance(v, bool):
            raise BatchError(f"column '{col['name']}': {v!r} is not an integer")
        bits = 31 if t == 1 else 63
        if not -(1 << bits) <= v < (1 << bits):
            raise BatchError(f"column '{col['name']}': {v} is out of range")
        return v
    if t == 7 and isinstance(v, str):
        # The three accepted spellings of a moment collapse to the longest one.
        m = re.fullmatch(r"(\d{4}-\d\d-\d\d)(?: (\d\d:\d\d:\d\d)(\.\d{3})?)?", v)
        if m:
            return f"{m[1]} {m[2] or '00:00:00'}{m[3] or '.000'}"
    if not isinstance(v, (str, int, float)) or isinstance(v, bool):
        raise BatchError(f"column '{col['name']}': {v!r} is not a key value")
    return v


def key_of(layout, row):
    missing = [k for k in layout["key"] if k not in row]
    if missing:
        raise BatchError(f"key column '{missing[0]}' is missing")
    return tuple(norm(layout["cols"][k], row[k]) for k in layout["key"])


def check_row(layout, row, insert):
    if not isinstance(row, dict):
        raise BatchError("the row is not an object")
    for name, v in row.items():
        col = layout["cols"].get(name)
        if col is None:
            raise BatchError(f"unknown column '{name}'")
        if v is None and not col.get("nullable", False):
            raise BatchError(f"column '{name}' is not nullable")
    if insert:
        for name, col in layout["cols"].items():
            if not col.get("nullable", False) and name not in row:
                raise BatchError(f"column '{name}' is missing")


def apply_batch(schema, tables, batch):
    """Validates the whole batch against an overlay, then commits it: all or nothing."""
    if not isinstance(batch, dict) or not isinstance(batch.get("ops"), list):
        raise BatchError("not a batch object with 'ops'")
    layout = schema.get(batch.get("table"))
    if layout is None:
        raise BatchError(f"unknown table {batch.get('table')!r}")
    base = tables.setdefault(batch["table"], {})
    cleared, changes = False, {}  # key -> row, or None for a deleted row

    def current(k):
        return changes[k] if k in changes else (None if cleared else base.get(k))

    for i, op in enumerate(batch["ops"], 1):
        try:
            if not isinstance(op, dict) or len(op) != 1:
                raise BatchError("an op must be an object with one key")
            (kind, row), = op.items()
            if kind == "clear":
                if row is not True:
                    raise BatchError("'clear' takes true")
                cleared, changes = True, {}
                continue
            if kind not in ("insert", "update", "delete"):
                raise BatchError(f"unknown op '{kind}'")
            check_row(layout, row, kind == "insert")
            k = key_of(layout, row)
            old = current(k)
            if kind == "insert":
                if old is not None:
                    raise BatchError("the key already exists")
                changes[k] = dict(row)
            elif old is None:
                raise BatchError(f"{kind} of a missing row")
            else:
                changes[k] = {**old, **row} if kind == "update" else None
        except BatchError as e:
            raise BatchError(f"table '{batch['table']}': row {i}: {e}") from None
    if cleared:
        base.clear()
    for k, row in changes.items():
        if row is None:
            base.pop(k, None)
        else:
            base[k] = row


def load_file(schema, tables, path):
    n = 0
    try:
        with open(path, encoding="utf-8") as f:
            for n, line in enumerate(f, 1):
                if line.strip():  # blank lines are skipped
                    apply_batch(schema, tables, json.loads(line, parse_constant=no_constant))
    except (OSError, ValueError, BatchError) as e:
        raise Fail(f"{path}:{n}: {e}")


def no_constant(name):
    raise ValueError(f"{name} is not JSON")


def fields(payload, what, layout):
    """Decodes a JSON object and checks the listed keys' types; other keys are ignored."""
    try:
        obj = json.loads(payload.decode("utf-8"), parse_constant=no_constant)
    except ValueError:
        raise Fail(f"malformed frame: {what} is not UTF-8 JSON")
    if not isinstance(obj, dict):
        raise Fail(f"malformed frame: {what} is not a JSON object")
    for key, typ in layout.items():
        v = obj.get(key)
        if not isinstance(v, typ) or (typ is int and isinstance(v, bool)) or (typ is int and v < 0):
            raise Fail(f"malformed frame: {what} has no valid '{key}'")
    return obj


def frame(ftype, payload):
    head = struct.pack(">IB", len(payload) + 1, ftype)
    return head + struct.pack(">I", zlib.crc32(head)) + payload + struct.pack(">I", zlib.crc32(payload))


class Session:
    def __init__(self, sock, schema, deadline):
        self.sock, self.schema, self.deadline = sock, schema, deadline
        self.tables = {name: {} for name in schema}
        self.buf = b""
        self.applied = self.server_last = None
        self.last_sent = self.last_heard = self.last_batch = time.monotonic()

    def send(self, ftype, payload):
        self.sock.sendall(frame(ftype, payload))
        self.last_sent = time.monotonic()

    def next_frame(self, live_check=False):
        """The next frame, sending heartbeats while waiting; None once the session is live."""
        while True:
            if len(self.buf) >= 9:
                length, ftype, head_crc = struct.unpack(">IBI", self.buf[:9])
                if head_crc != zlib.crc32(self.buf[:5]):
                    raise Fail("malformed frame: a damaged frame header")
                if not 1 <= length <= MAX_FRAME:
                    raise Fail(f"malformed frame: length {length}")
                end = 9 + length - 1
                if len(self.buf) >= end + 4:
                    payload = self.buf[9:end]
                    if struct.unpack(">I", self.buf[end:end + 4])[0] != zlib.crc32(payload):
                        raise Fail(f"malformed frame: a damaged frame of type {ftype}")
                    self.buf = self.buf[end + 4:]
                    return ftype, payload
            now = time.monotonic()
            if now >= self.deadline:
                raise Fail("timeout: not live within --timeout")
            if now - self.last_heard >= DEAD_AFTER:
                raise Fail("heartbeat timeout: nothing from the server for 5 s")
            if live_check and self.applied == self.server_last and now - self.last_batch >= QUIET_FOR_LIVE:
                return None
            if now - self.last_sent >= HEARTBEAT_EVERY:
                self.send(HEARTBEAT, struct.pack(">Q", self.applied or 0))
            wake = [self.deadline, self.last_heard + DEAD_AFTER, self.last_sent + HEARTBEAT_EVERY]
            if live_check:
                wake.append(self.last_batch + QUIET_FOR_LIVE)
            self.sock.settimeout(max(0.01, min(wake) - time.monotonic()))
            try:
                data = self.sock.recv(1 << 16)
            except socket.timeout:
                continue
            if not data:
                raise Fail("connection lost")
            self.buf += data
            self.last_heard = time.monotonic()  # any bytes show the peer is alive

    def common(self, ftype, payload, allowed, where):
        """Handles what every state treats alike; returns True when the frame was consumed."""
        if ftype not in allowed:
            raise Fail(f"malformed frame: type {ftype} is not allowed {where}")
        if ftype == HEARTBEAT:
            if len(payload) != 8:
                raise Fail("malformed frame: a HEARTBEAT carries 8 bytes")
            self.server_last = struct.unpack(">Q", payload)[0]
            return True
        if ftype == ERROR:
            raise Fail("ERROR: " + fields(payload, "ERROR", {"error": str})["error"])
        if ftype == BYE:
            raise Fail("BYE: " + fields(payload, "BYE", {"reason": str})["reason"])
        return False

    def apply(self, seq, batch):
        try:
            apply_batch(self.schema, self.tables, batch)
        except BatchError as e:
            self.send(REJECTED, json.dumps({"seq": seq, "origin": f"replication:{seq}", "reason": str(e)}).encode())
            raise Fail(f"batch {seq} rejected: {e}")

    def snapshot(self, begin):
        b = fields(begin, "SNAPSHOT_BEGIN", {"seq": int, "lines": int, "bytes": int, "compression": str, "day": str, "history": str})
        if b["compression"] != "none":
            raise Fail(f"malformed frame: compression '{b['compression']}' was not asked for")
        names = sorted(self.schema, key=lambda n: self.schema[n]["order"])
        got_bytes, lines, pending, table = 0, 0, b"", -1
        while True:
            ftype, payload = self.next_frame()
            if self.common(ftype, payload, {SNAP_DATA, SNAP_END, HEARTBEAT, BYE}, "in a snapshot"):
                continue
            if ftype == SNAP_END:
                end = fields(payload, "SNAPSHOT_END", {"seq": int})
                if end["seq"] != b["seq"] or pending or lines != b["lines"] or got_bytes != b["bytes"] or table != len(names) - 1:
                    raise Fail(f"malformed frame: the snapshot ends at {end['seq']} with {lines} lines and "
                               f"{got_bytes} bytes, SNAPSHOT_BEGIN said {b['seq']}, {b['lines']}, {b['bytes']}")
                self.applied = b["seq"]
                self.server_last = max(self.server_last, self.applied)
                self.last_batch = time.monotonic()
                return
            if len(payload) > 1 << 20:
                raise Fail("malformed frame: SNAPSHOT_DATA over 1 MiB")
            got_bytes += len(payload)
            if got_bytes > b["bytes"]:
                raise Fail(f"malformed frame: the snapshot passes the {b['bytes']} bytes announced")
            *whole, pending = (pending + payload).split(b"\n")
            for line in whole:
                if lines >= b["lines"]:
                    raise Fail(f"malformed frame: the snapshot has more than {b['lines']} lines")
                batch = fields(line, f"snapshot line {lines + 1}", {})
                ops = batch.get("ops") or [{}]
                # Each table in the schema's order, its lines consecutive, the first one clearing it.
                if table >= 0 and batch.get("table") == names[table] and ops[0].get("clear") is not True:
                    pass
                elif table + 1 < len(names) and batch.get("table") == names[table + 1] and ops[0].get("clear") is True:
                    table += 1
                else:
                    raise Fail(f"malformed frame: snapshot line {lines + 1} is neither more of table "
                               f"'{names[table] if table >= 0 else ''}' nor the start of the next one")
                self.apply(b["seq"], batch)
                lines += 1

    def run(self, login, password):
        hello = {"protocol": PROTOCOL, "login": login, "password": password, "day": "", "history": "", "after": 0, "compression": []}
        self.send(HELLO, json.dumps(hello).encode())
        while True:
            ftype, payload = self.next_frame()
            if not self.common(ftype, payload, {WELCOME, ERROR, HEARTBEAT}, "before WELCOME"):
                break
        w = fields(payload, "WELCOME", {"protocol": int, "day": str, "history": str, "last": int, "resume": bool})
        if w["protocol"] != PROTOCOL or w["resume"]:
            raise Fail(f"malformed frame: WELCOME protocol {w['protocol']}, resume {w['resume']} after 0")
        self.server_last = w["last"]
        self.firm = w.get("firm", "")
        while True:
            got = self.next_frame(live_check=self.applied is not None)
            if got is None:
                return
            ftype, payload = got
            if self.common(ftype, payload, {BATCH, SNAP_BEGIN, HEARTBEAT, BYE}, "after WELCOME"):
                continue
            if ftype == SNAP_BEGIN:
                self.snapshot(payload)
                continue
            if self.applied is None:
                raise Fail("malformed frame: a BATCH before any snapshot")
            if len(payload) < 9:
                raise Fail("malformed frame: a BATCH without sequence and line")
            seq = struct.unpack(">Q", payload[:8])[0]
            if seq != self.applied + 1:
                raise Fail(f"sequence gap: expected {self.applied + 1}, got {seq}")
            self.apply(seq, fields(payload[8:], f"BATCH {seq}", {}))
            self.applied = seq
            self.server_last = max(self.server_last, seq)
            self.last_batch = time.monotonic()


# The per-firm tables and the column that names a row's firm ("Each firm its own rows").
FIRM_COLUMN = {"k3.user": "client_code", "k3.dealer": "client_code", "k3.investor": "client_code",
               "k3.core_dealer": "client_code", "k3.core_investor": "client_code", "k3.broker_fee_params": "client_code",
               "k3.rfs.lp_users": "client_code", "k3part_bf": "account", "fut_vm": "account", "opt_vm": "account",
               "orders": "account", "k3.fut_margin_type": "code", "k3.fut_settlement_account": "code",
               "fut_vm_sa": "settlement_account", "opt_vm_sa": "settlement_account"}
DEAL_FEES = {"k3.adjusted_fee", "k3.broker_fee"}


def firm_of(code):
    code = (code or "").strip()
    return code[:4] if len(code) >= 4 else ""


def firm_copy(tables, firm):
    """What a session of `firm` holds of these tables (rows whose firm never changed)."""
    users = {r["login"]: firm_of(r.get("client_code")) for r in tables["k3.user"].values()}

    def deal_kept(r):
        return firm in (firm_of(r.get("account")), users.get(r.get("login"), ""))
    deals = {r["deal_id"] for r in tables["deals"].values() if deal_kept(r)}
    out = {}
    for name, rows in tables.items():
        if name in FIRM_COLUMN:
            keep = lambda r, c=FIRM_COLUMN[name]: firm_of(r.get(c)) == firm
        elif name == "deals":
            keep = deal_kept
        elif name in DEAL_FEES:
            keep = lambda r: r.get("id_deal") in deals
        elif name == "k3.RF":
            keep = lambda r: len((r.get("code") or "").strip()) >= 2 and firm.startswith((r.get("code") or "").strip())
        else:
            keep = lambda r: True
        out[name] = {k: r for k, r in rows.items() if keep(r)}
    return out


def main(argv=None):
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--connect", required=True, metavar="HOST:PORT")
    p.add_argument("--schema", required=True)
    p.add_argument("--login", default="FA01U01")
    p.add_argument("--ca", help="TLS: the authorities (PEM) the server's certificate must chain to")
    p.add_argument("--insecure", action="store_true", help="plain TCP instead of TLS")
    p.add_argument("--timeout", type=float, default=60.0)
    p.add_argument("--expect-snapshot")
    p.add_argument("--expect-log")
    a = p.parse_args(argv)
    if bool(a.expect_snapshot) != bool(a.expect_log):
        p.error("--expect-snapshot and --expect-log go together")
    if bool(a.ca) == a.insecure:
        p.error("give --ca FILE (TLS) or --insecure (plain TCP)")
    if not re.fullmatch(r"[!-{}~]{1,12}", a.login):  # printable ASCII, no space and no '|'
        p.error("--login takes 1 to 12 printable characters, no spaces and no '|'")
    try:
        schema = load_schema(a.schema)
        host, _, port = a.connect.rpartition(":")
        if not host or not port.isdigit():
            raise Fail(f"--connect takes HOST:PORT, not '{a.connect}'")
        password = sys.stdin.readline().rstrip("\r\n")  # never from the arguments
        deadline = time.monotonic() + a.timeout
        try:
            sock = socket.create_connection((host, int(port)), timeout=min(5.0, a.timeout))
        except OSError as e:
            raise Fail(f"connection refused: {e}")
        if a.ca:
            context = ssl.create_default_context(cafile=a.ca)
            context.minimum_version = ssl.TLSVersion.TLSv1_2
            try:
                sock = context.wrap_socket(sock, server_hostname=host)
            except ssl.SSLError as e:
                raise Fail(f"the exchange at {a.connect} cannot be verified: {e}")
        with sock:
            s = Session(sock, schema, deadline)
            s.run(a.login, password)
        print(f"live at sequence {s.applied}")
        for name in sorted(s.tables):
            print(f"{name} {len(s.tables[name])}")
        if a.expect_snapshot:
            want = {name: {} for name in schema}
            load_file(schema, want, a.expect_snapshot)
            load_file(schema, want, a.expect_log)
            if not s.firm:
                raise Fail(f"the login {a.login} has no firm: nothing to compare with")
            want = firm_copy(want, s.firm)
            diffs = []
            for name in sorted(schema):
                mine, theirs = s.tables[name], want[name]
                if len(mine) != len(theirs):
                    diffs.append(f"{name}: {len(mine)} rows, the files give {len(theirs)}")
                extra, missing = mine.keys() - theirs.keys(), theirs.keys() - mine.keys()
                if extra or missing:
                    diffs.append(f"{name}: keys only here {sorted(extra, key=repr)[:5]}, "
                                 f"only in the files {sorted(missing, key=repr)[:5]}")
            if diffs:
                raise Fail("differs from the files:\n" + "\n".join(diffs))
            print(f"identical to firm {s.firm}'s copy of the files: {len(schema)} tables, {sum(map(len, want.values()))} rows")
    except Fail as e:
        print(e, file=sys.stderr)
        return 1
    except OSError as e:
        print(f"connection lost: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
