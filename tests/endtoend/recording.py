#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Records running agents, plays the recordings, and compares what ztcomm reports of both.
in_namespace.sh recording.py PROGRAMS SCENARIOS"""
from concurrent.futures import ThreadPoolExecutor
import contextlib, json, os, re, signal, subprocess, sys, tempfile, time, tomllib

PROGRAMS, SCENARIOS = sys.argv[1:]
FOLDER = tempfile.TemporaryDirectory()
wrong = []


def path(name):
    return os.path.join(FOLDER.name, name)


def write(name, text):
    with open(path(name), "w", encoding="utf-8") as file:
        file.write(text)
    return path(name)


class Agents:
    """hxasim over a scenario, until the end of the block."""
    def __init__(self, scenario):
        with contextlib.suppress(FileNotFoundError):
            os.remove(path("log"))
        self.process = subprocess.Popen([f"{PROGRAMS}/hxasim", "--log", path("log"), scenario],
                                        stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        check("ready", "ready" in self.process.stdout.readline())

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()


def check(what, good, more=""):
    if not good:
        wrong.append(what)
        print(f"wrong: {what}\n{more}")


def run(program, *arguments, limit=120):
    started = time.monotonic()
    done = subprocess.run([f"{PROGRAMS}/{program}", *arguments], capture_output=True, text=True,
                          errors="surrogateescape", timeout=limit)
    done.seconds = time.monotonic() - started
    return done


def record(name, *arguments):
    """The recording as a TOML reader that is not ours understands it, and what was said."""
    done = run("hxasim", "record", "-o", path(name), *arguments)
    check(f"{name} is written", done.returncode == 0, done.stderr)
    check(f"{name} is a scenario", run("hxasim", "--check", path(name)).returncode == 0)
    with open(path(name), "rb") as file:
        return tomllib.load(file), done.stderr


def report(target, *options):
    """What a check prints of a system, without ports and addresses."""
    done = run("ztcomm", "-s", target, *options)
    text = "\n".join(done.stdout.splitlines()[4:]) + "\n" + done.stderr
    text = re.sub(r"\[\d+\]|port \d+", "[PORT]", text)
    return re.sub(r"\b127\.\d+\.\d+\.\d+\b", "ADDRESS", text)


def reports(target, sources):
    checks = [["-b"], ["-c"]] + [["-ds", source] for source in sources]
    return [report(target, *options) for options in checks]


def contexts_left():
    with open(path("log"), encoding="utf-8") as file:
        changes = [json.loads(line).get("change") for line in file if '"event":"context"' in line]
    check("contexts are made", "is made" in changes)
    return changes.count("is made") - changes.count("is destroyed")


def translation(real, made_up):
    """The made-up text for each text of a recording; {} when two texts have become one, or one two,
    or anything but texts has changed."""
    words = {}

    def walk(one, other):
        if isinstance(one, dict):
            for each in (one, other) if "name" in one else ():
                each.setdefault("label", each["name"])
            keys = one if one.keys() == other.keys() else other  # keys of sources are names
            return len(one) == len(other) and all(
                walk(key, made_up_key) and walk(one[key], other[made_up_key])
                for key, made_up_key in zip(one, keys))
        if isinstance(one, list):
            return len(one) == len(other) and all(map(walk, one, other))
        return (words.setdefault(one, other) if isinstance(one, str) else one) == other

    if not walk(real, made_up):
        return {}
    changed = {one: other for one, other in words.items() if one != other}
    return changed if len(set(changed.values())) == len({one.lower() for one in changed}) else {}


def translated(text, words):
    """A report of the real agent in made-up words, with one blank where there are several."""
    known = "|".join(map(re.escape, sorted(words, key=len, reverse=True))) or "$."
    text = re.sub(rf"(?<!\w)(?:{known})(?!\w)", lambda found: words[found[0]], text)
    return " ".join(text.split())


def healthy():
    """A shipped scenario: three sources, instances, both byte orders."""
    sources = ["TAMBO", "ORDERS", "WEBLOGS"]
    with Agents(f"{SCENARIOS}/demo.toml"):
        had, said = record("plain", "127.0.1.1", "127.0.1.6")
        alone, _ = record("alone", "127.0.1.1")
        hidden, _ = record("hidden", "--anonymous", "127.0.1.1")
        day, _ = record("day", "--hours", "24", "--jobs", "1", "127.0.1.1")
        real = reports("127.0.1.1", sources)
        real_dead = reports("127.0.1.6", ["TAMBO"])
    check("every view is destroyed", contexts_left() == 0)
    check("the dead server is told", "the port is refused" in said, said)
    check("both byte orders", [one.get("byte_order") for one in had["system"][0]["repository"]] ==
          [None, None, "big"])
    rows = {one["name"]: len(one.get("rows", [])) for one in had["source"]["TAMBO"]["class"]}
    check("the last hour", rows == {"CONFIGURATION": 1, "GLOBAL": 13, "DISK": 39}, rows)
    check("the last day", len(day["source"]["TAMBO"]["class"][1]["rows"]) == 289)
    with Agents(path("plain")):
        check("the same reports", reports("127.0.6.1", sources) == real)
        check("of two systems", reports("127.0.6.2", ["TAMBO"]) == real_dead)
    with Agents(path("hidden")):
        made_up = reports("127.0.6.1", ["TAMBO", "SOURCE_1", "SOURCE_2"])
    for one in alone, hidden:  # the headings of the product's own classes stay
        one["headings"] = [metric.pop(heading) for each in one["source"]["TAMBO"]["class"]
                           for metric in each["metric"]
                           for heading in ("heading1", "heading2") if heading in metric]
    check("the same headings", alone.pop("headings") == hidden.pop("headings"))
    words = translation(alone, hidden)
    check("one word for each", words.get("ORDERS") == "SOURCE_1", (alone, hidden))
    kinds = [("SOURCE_", "/path-"), ("system-",), (), ("",), ("",)]
    for text, kind, played in zip(real, kinds, made_up):
        known = {one: other for one, other in words.items() if other.startswith(kind)}
        check("the same but for names", translated(text, known) == " ".join(played.split()),
              text + played)
    with open(path("hidden"), encoding="utf-8") as file:
        text = file.read()
    check("the product's names stay", "GBL_CPU_TOTAL_UTIL" in text and '"CONFIGURATION"' in text)
    for real_word in ["127.0.1.", "ORDERS", "logglob", "shop", "sda", "Data disk", "4c4c4544"]:
        check(f"{real_word} is hidden", real_word not in text)
    disk = hidden["source"]["TAMBO"]["class"][2]
    names = {one["name"] for one in disk["instance"]}
    check("the same in rows", {row[1] for row in disk["rows"]} == names and len(names) == 3)


TEXTS = r"""
[source.APPLICATION]
id = 1
path = "/srv/data"
[[source.APPLICATION.class]]
id = 7
name = "QUEUES"
discriminator = 2
instance = [{id = 1, name = "in \"q\"", death = 1700000000}, {id = 2, name = "out"}]
metric = [{id = 1, name = "T"}, {id = 2, name = "NAME", type = "text", length = 40, width = 9},
          {id = 3, name = "TEXT", type = "text", length = 60, width = 20}, {id = 4, name = "N"}]
rows = [[1700000000, 1, "in \"q\"", "out of 127.0.1.19, /srv/data on web9", -1],
        [1700000000, 2, "out", "web9.shop.example \u0001 \\ tab\t", 4294967295],
        [1700000300, 3, "out", "", 3]]
[[system]]
name = "web9"
address = "127.0.1.19"
[[system.mapper.element]]
interface = "rep"
endpoint = "\\pipe\\web9"
protocol = "ncacn_np"
address = "WEB9"
[[system.mapper.element]]
tower = "0300 1234"
[[system.repository]]
source = "APPLICATION"
object = "0f6a7c58-2d31-4c8e-9b53-7a9e3c1d2b40"
[system.alarm]
evc_flag = 3
"""


def texts():
    """Rows with instances that come and go, texts with everything in them, other elements."""
    with Agents(write("texts.toml", TEXTS)):
        had, _ = record("texts", "web9")
        hidden, _ = record("texts-hidden", "--anonymous", "web9")
        real = reports("127.0.1.19", ["APPLICATION"])
        log = contexts_left()
    check("every view is destroyed again", log == 0)
    given = tomllib.loads(TEXTS)["source"]["APPLICATION"]["class"][0]["rows"]
    wire = [row[:-1] + [row[-1] - (1 << 32 if row[-1] >= 1 << 31 else 0)] for row in given]
    check("the same rows", had["source"]["APPLICATION"]["class"][0]["rows"] == wire, had)
    with Agents(path("texts")):
        check("the same reports of texts", reports("127.0.6.1", ["APPLICATION"]) == real)
        again, _ = record("again", "127.0.6.1")
    check("a recording of a recording", again["source"] == had["source"])
    rows = hidden["source"]["SOURCE_1"]["class"][0]["rows"]
    check("names inside texts", [row[3] for row in rows] ==
          ["instance-2 of 127.0.6.1, /path-1 on host-1", "host-1 \u0001 \\ tab\t", ""], rows)
    check("one element is left out", len(had["system"][0]["mapper"]["element"]) ==
          len(hidden["system"][0]["mapper"]["element"]) + 1)


def broken():
    """Whatever an agent does, the recording ends, says so, and fails likewise when it is played."""
    sound = '[[system.repository]]\nsource = "A"\n'
    kinds = {
        "no broker": '[system.broker]\nmode = "refused"',
        "silent broker": '[system.broker]\nmode = "silent"',
        "garbage": '[system.broker]\nmode = "malformed"',
        "old": '[system.broker]\nversion = "1.3"',
        "closing": '[system.broker]\nmode = "closing"',
        "no mapper": '[system.mapper]\nmode = "refused"',
        "mute mapper": '[system.mapper]\nmode = "silent"',
        "unknown mapper": '[system.mapper]\nmode = "rejecting"',
        "dead": '[[system.repository]]\nsource = "A"\nstate = "dead"',
        "mute": '[[system.repository]]\nsource = "A"\nstate = "mute"',
        "not listening": '[[system.repository]]\nsource = "A"\nlistening = "no"',
        "silent": '[[system.repository]]\nsource = "A"\nbehaviour = [{silent = true}]',
        "fault": '[[system.repository]]\nsource = "A"\n'
                 'behaviour = [{operation = "rep_LookupRepository", fault = 0x1C000012}]',
        "status": f'{sound}behaviour = [{{operation = "repView_Read", status = 5}}]',
        "listing fails": f"[system.mapper]\nfail_after = 2\n{sound}{sound}[system.alarm]",
        "mapper falls silent": '[system.mapper]\nfail_after = 1\nfail = "silent"\n'
                               f"{sound}{sound}[system.alarm]",
        "lying": '[[system.repository]]\nsource = "A"\n'
                 'behaviour = [{operation = "rep_LookupTable", reply = "ff 00 ff 00"}]',
        "cut": '[[system.repository]]\nsource = "A"\n'
               'behaviour = [{operation = "repView_Read", cut = 9}]',
        "working for ever": '[[system.repository]]\nsource = "A"\n'
                            'behaviour = [{operation = "rep_LookupMetric", working = true}]',
        "dies": '[[system.repository]]\nsource = "A"\n'
                'behaviour = [{operation = "repView_Read", die = true}]',
        "alarm faults": '[[system.repository]]\nsource = "A"\n[system.alarm]\n'
                        'behaviour = [{operation = "ag_Ping", fault = 0x1C000012}]',
    }
    scenario = ('[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = "C"\nrows = 3\n'
                'metric = [{id = 1, name = "T"}, {id = 2, name = "M"}]\n')
    for number, table in enumerate(kinds.values(), 1):
        scenario += f'[[system]]\naddress = "127.0.8.{number}"\n{table}\n'
    addresses = [f"127.0.8.{number}" for number in range(1, len(kinds) + 1)]
    checks = ["-b"] * len(kinds)
    with Agents(write("broken.toml", scenario)), ThreadPoolExecutor(32) as jobs:
        real = list(jobs.map(report, addresses, checks))
        started = time.monotonic()
        had, said = record("broken", "--level", "0", "--jobs", "32", *addresses)
        check("it ends", time.monotonic() - started < 60)
    for address, kind in zip(addresses, kinds):
        check(f"{kind} is told", kind == "old" or f"{address}: could not be had: " in said, said)
    read = {kind for kind, system in zip(kinds, had["system"]) for one in system.get("repository", [])
            if any("rows" in each for each in had["source"][one["source"]].get("class", []))}
    check("no rows of what failed", read == {"listing fails", "mapper falls silent",
                                             "alarm faults"}, read)
    played = [f"127.0.6.{number + 1}" for number in range(len(kinds))]
    with Agents(path("broken")), ThreadPoolExecutor(32) as jobs:
        for kind, one, other in zip(kinds, real, jobs.map(report, played, checks)):
            check(f"{kind} again", one == other, one + other)


def shipped():
    """Every system of the shipped scenarios fails in its replay as it did."""
    for name in "broken-links", "broken-broker", "demo":
        scenario = f"{SCENARIOS}/{name}.toml"
        with open(scenario, "rb") as file:
            addresses = [one["address"] for one in tomllib.load(file)["system"]]
        with Agents(scenario), ThreadPoolExecutor(32) as jobs:
            real = list(jobs.map(report, addresses))
        with Agents(scenario):  # anew: what a check ends, or starts anew, is as it was
            record(name, "--level", "1", "--jobs", "32", *addresses)
        played = [f"127.0.6.{number + 1}" for number in range(len(addresses))]
        with Agents(path(name)), ThreadPoolExecutor(32) as jobs:
            for address, one, other in zip(addresses, real, jobs.map(report, played)):
                check(f"{name}, {address} again", one == other, one + other)


def ended():
    """An interrupt ends the walks, gives back what they hold, and writes what was had."""
    slow = TEXTS.replace("[system.alarm]", 'behaviour = [{operation = "repView_Read", '
                         "working_ms = 2000}]\n[system.alarm]")
    with Agents(write("slow.toml", slow)):
        process = subprocess.Popen([f"{PROGRAMS}/hxasim", "record", "-o", path("part"), "web9"],
                                   stderr=subprocess.PIPE, text=True)
        time.sleep(1)
        process.send_signal(signal.SIGINT)
        said = process.communicate(timeout=30)[1]
    check("no view is left", contexts_left() == 0)
    check("the interrupt is told", "interrupted" in said and process.returncode == 0, said)
    check("no such name", run("hxasim", "record", "-o", path("x"), "no.such.").returncode == 1)


for part in (healthy, texts, broken, shipped, ended):
    part()
print(f"{len(wrong)} wrong")
sys.exit(1 if wrong else 0)
