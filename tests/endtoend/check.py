#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs ztsys check, as it is built, over simulated systems. in_namespace.sh check.py BIN [COPIES]
Every kind of broken system is there COPIES times (2; 8 for some two hundred)."""
import concurrent.futures, contextlib, fcntl, json, os, pty, re, resource, select, shutil, signal
import subprocess, sys, tempfile, time

SCENARIO = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../agent/scenarios/broken-links.toml")
WORDS = {"succeeded": "Succeeded", "failed": "Failed", "no-halvex": "No Halvex",
         "not-supported": "Not Supported", "not-available": "Not Available"}
# What ztcomm -s says of a system that is not simply "failed".
SAYINGS = {"The system cannot be reached.": "not-available", "refuses the connection": "no-halvex",
           "does not show that it speaks protocol version 2": "not-supported"}
ALPHA = ('[[system]]\naddress = "127.0.1.1"\n[[system.repository]]\nsource = "TAMBO"\n'
         '[system.alarm]\nbehaviour = [{operation = "ag_Ping", late_ms = 300}]\n\n')
NO_ALARM_SERVER = "No almserver registered."
# One of several servers is sick: told, and no failure while another one lives.
NOTE = r"Repository servers of the system may be missing here\. .*\nDetails: .*"
HOSTILE = 'a"\\<b>|\udcff\udc80\r\n{}'
wrong = 0


def expect(true, *what):
    global wrong
    if not true:
        wrong += 1
        print("WRONG:", *what, flush=True)


def run(*words, text=None, files=None, **more):
    limit = lambda: files and resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))
    ended = subprocess.run(words, input=text and text.encode(), capture_output=True, timeout=120,
                           preexec_fn=limit, **more)
    return ended.returncode, os.fsdecode(ended.stdout), os.fsdecode(ended.stderr)


def check(*words, **more):
    return run("ztsys", "check", *words, **more)


@contextlib.contextmanager
def agents(copies):
    """Every broken system on each of so many networks; at most four networks in a process, so that
    each system has sockets of its own."""
    with open(SCENARIO, encoding="utf-8") as file:
        source, systems = re.split(r"(?m)^(?=\[\[system\]\]$)", file.read(), maxsplit=1)
    started = []
    try:
        for first in range(0, copies, 4):
            with open(f"{first}.toml", "w", encoding="utf-8") as file:
                file.write(source + ALPHA * (first == 0))
                for copy in range(first, min(first + 4, copies)):
                    file.write(re.sub(r'(?m)^name = "', f'name = "{copy}-',
                                      systems.replace('"127.0.2.', f'"127.0.{10 + copy}.')))
            started.append(subprocess.Popen(["hxasim", "-v", f"{first}.toml"], bufsize=0,
                                            stdout=open(f"{first}.log", "w")))
            for _ in range(200):
                if "ready" in open(f"{first}.log").read():
                    break
                time.sleep(0.05)
        yield
    finally:
        for each in started:
            each.terminate()
            each.wait()


def said_of(address):
    """State and sentence that ztcomm -s has for a system."""
    _, out, said = run("ztcomm", "-s", address)
    said = re.sub(NOTE, "", said.split("is 0.\n", 1)[-1]).strip()
    state = next((state for words, state in SAYINGS.items() if words in said), "failed")
    sentence = re.search(r"(?:Details|Nothing was found there): (.*)", said)
    good = not said and NO_ALARM_SERVER not in out
    return ("succeeded" if good else state), sentence and sentence[1]


def agreement(copies):
    addresses = [f"127.0.{10 + copy}.{last}" for copy in range(copies) for last in range(1, 26)]
    run("ztsys", "add", *addresses)
    status, out, _ = check("--json")
    found = {each["system"]: each for each in map(json.loads, out.splitlines())}
    expect(status == 1 and sorted(found) == sorted(addresses), "check --json", status, len(found))
    lines = run("ztcomm", "-zt")[1].split("-\n", 1)[1].strip("\n").splitlines()
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        alone = list(pool.map(said_of, addresses))
    expect(len(lines) == len(addresses), "lines of -zt", len(lines))
    for address, line, (state, sentence) in zip(addresses, lines, alone):
        each = found[address]
        expect(line == f"  {WORDS[each['state']] + ' ':-<17} {address}", "-zt", line, each)
        expect(state == each["state"], "-s", address, state, each)
        # One ends at its first call, and that none is registered is said without details.
        if state != "succeeded" and not address.endswith((".17", ".19")):
            expect(sentence == each["text"] + " " + each["try"], "-s", sentence, each)
    counts = {state: sum(each["state"] == state for each in found.values()) for state in WORDS}
    print(f"{len(addresses)} systems, as check, -zt and -s have them:", counts)

    # Without a blank, the members in their order, and those absent that have nothing to say.
    expect(re.fullmatch(r'\{"system":"127.0.10.2","address":"127.0.10.2","group":"","state":"no-halvex",'
                        r'"link":"broker","cause":"refused","status":10061,"at":"127.0.10.2:382",'
                        r'"text":"[^"]+","try":"[^"]+","repositories":\[\],"alarm_server":null,'
                        r'"milliseconds":\d+\.\d\}', check("--json", "127.0.10.2")[1].strip()), "form")
    expect(re.fullmatch(r'\{"system":"127.0.10.24","address":"127.0.10.24","group":"",'
                        r'"state":"succeeded","repositories":\[\{"label":"TAMBO","path":"[^"]+",'
                        r'"address":"127.0.10.24","port":\d+\}\],"alarm_server":\{"address":'
                        r'"127.0.10.24","port":\d+\},"milliseconds":\d+\.\d\}',
                        check("--json", "127.0.10.24")[1].strip()), "form of one that succeeded")
    # However few files may be open, every system has its verdict.
    status, out, err = check("--json", files=100)
    few = {each["system"]: each["state"] for each in map(json.loads, out.splitlines())}
    expect(few == {name: each["state"] for name, each in found.items()}, "few files")
    expect("systems are asked at once and not 128" in err, err)
    expect(check("--plugin", files=10)[:2] == (3, "ZENTRACE UNKNOWN - this process may open too few files to "
                                                  "ask a system (ulimit -n)\n"), "hardly any files")
    expect(found["127.0.10.13"]["status"] == 1722, "the status of a call", found["127.0.10.13"])


def command_lines():
    """What is typed (words and standard input), the exit status, and patterns of both streams."""
    with open("rotten", "wb") as file:
        file.write(b"no database" * 1000)
    run("ztsys", "--db", "few", "add", "--group", "web", "127.0.10.24", "127.0.10.2")
    run("ztsys", "--db", "few", "add", "--group", "db", "127.0.10.8")
    run("ztsys", "--db", "empty", "add", "127.0.10.24")
    run("ztsys", "--db", "empty", "delete", "--yes", "127.0.10.24")
    rows = [
        (["--db", "empty"], "", 2, "", "no system to check"),
        (["--db", "few", "--group", "nobody"], "", 2, "", "no system to check"),
        (["--db", "few", "--group", "web", "--group", "db"], "", 1, r"\n3 systems: 1 succeeded, 1 no "
         r"Halvex, 1 not supported; \d+\.\d s\n$", ""),
        (["--db", "few", "--failed", "--group", "web"], "", 1,
         r"-\n  No Halvex ------- 127.0.10.2  [^\n]+\n\n2 systems: 1 succeeded, 1 no Halvex; ", ""),
        (["--db", "few", "127.0.10.24", "alpha"], "", 0, r"-\n  Succeeded ------- 127.0.10.24\n  Succ"
         r"eeded ------- alpha\n\n2 systems: 2 succeeded; ", ""),
        # One address is one system; comments and blanks are none.
        (["--db", "few", "--from", "-"], "# all\n127.0.10.24 # good\n\n  alpha\r\nalpha\nseveral\n"
         "127.0.10.24", 0, r"-\n  Succeeded ------- 127.0.10.24\n  Succeeded ------- alpha\n\n2 sys", ""),
        (["nobody", "127.0.10.24"], "", 1, r"Failed -+ nobody  name: nobody: the name gives no address.\n", ""),
        (["--from", "missing"], "", 2, "", "cannot open 'missing': No such file"),
        (["--from", "/dev/zero"], "", 2, "", "zero:1: the line is longer"),
        (["--output", "no/where", "127.0.10.24"], "", 2, "", "cannot open 'no/where': No such file"),
        (["--output", ".", "127.0.10.24"], "", 2, "", "cannot open '.': Is a directory"),
        (["--prometheus", "--failed"], "", 2, "", "--failed does not go"),
        (["--json", "--plugin"], "", 3, "^ZENTRACE UNKNOWN - only one of", "only one of"),
        (["--jobs", "0", "--plugin"], "", 3, "^ZENTRACE UNKNOWN - option '--jobs' takes", "--jobs"),
        (["--db", "missing"], "", 5, "", "missing: No such file"),
        (["--db", "rotten"], "", 7, "", "rotten: cannot open"),
        (["--db", "rotten", "--plugin"], "", 3, "^ZENTRACE UNKNOWN - .*rotten", "rotten"),
        (["--db", "few", "--plugin"], "", 2, r"^ZENTRACE CRITICAL - 2 of 3 systems did not succeed: "
         r"127.0.10.2 \(broker refused\), 127.0.10.8 \(broker too-old\) \| systems=3;;;0 succeeded=1;;;"
         r"0;3 failed=2;;1;0;3 time=\d+\.\d{3}s\n$", ""),
        (["--db", "few", "--plugin", "--critical", "3", "--warning", "2"], "", 1,
         "^ZENTRACE WARNING - 2 of 3 .* failed=2;2;3;0;3 ", ""),
        (["--db", "few", "--plugin", "--critical", "3"], "", 0, "^ZENTRACE OK - 2 of 3 ", ""),
        (["--plugin", "no|pi\npe"] + [f"127.0.10.{last}" for last in range(2, 13)], "", 2,
         r"12 of 12 .*: no\?pi\?pe \(name unknown-name\), (.*, ){8}127.0.10.10 \(.*\), and 2 more \|", ""),
        (["--json", HOSTILE], "", 1, r'^{"system":"a\\"\\\\<b>\|\\ufffd\\ufffd\\u000d\\u000a{}","group"',
         ""),
        (["--output", "/dev/stdout", "127.0.10.24"], "", 0, "1 system: 1 succeeded", ""),
    ]
    for words, text, *wanted in rows:
        status, out, err = check(*words, text=text)
        good = [status == wanted[0], re.search(wanted[1], out), re.search(wanted[2], err)]
        expect(all(good) and (not wanted[1]) <= (not out) and (not wanted[2]) <= (not err), words,
               status, out, err)
    with open("/dev/full", "w") as full:
        ended = subprocess.run(["ztsys", "check", "127.0.10.24"], stdout=full, stderr=subprocess.PIPE)
    expect(ended.returncode == 1 and b"No space left" in ended.stderr, ended)


def one_address_twice():
    """Two records whose names have one address: two lines, and one check that the agent sees."""
    os.rename("datafiles", "datafiles.full")
    os.mkdir("datafiles")
    run("ztsys", "add", "--address", "10.9.9.1", "alpha")
    run("ztsys", "add", "--address", "10.9.9.2", "several")
    seen = lambda: len(re.findall("127.0.1.1/broker connection of .* accepted", open("0.log").read()))
    before = seen()
    ended = run("ztcomm", "-zt")
    expect(ended[1].count("Succeeded ------- alpha\n") == 2 and seen() == before + 1, before, seen(), ended)
    shutil.rmtree("datafiles")
    os.rename("datafiles.full", "datafiles")


def metrics():
    status, text, _ = check("--prometheus", HOSTILE, *[f"127.0.10.{last}" for last in range(1, 26)])
    samples = re.findall(r'(?m)^zentrace_check_state\{.*state="(.*)"\} 1$', text)
    expect(status == 1 and len(samples) == 26, "states", samples)
    if not shutil.which("promtool"):
        print("Left out: promtool (./check --all fetches it).")
        return
    judged = run("promtool", "check", "metrics", text=text)
    expect(judged == (0, "", ""), "promtool", judged)


def files():
    """A reader of --output sees the old file or the new one, whatever ends the check."""
    with open("page", "w") as file:
        file.write("old")
    os.symlink("page", "link")
    words = ["ztsys", "check", "--timeout", "1", "--output", "link", "127.0.10.24", "127.0.10.25"]
    for number, status in [(signal.SIGHUP, 129), (signal.SIGINT, 130), (signal.SIGTERM, 143), (None, 1)]:
        ended = subprocess.Popen(words, stderr=subprocess.PIPE)
        time.sleep(0.7)
        expect(open("page").read() == "old" and ended.poll() is None, "half of a file")
        if number:
            ended.send_signal(number)
        err = ended.communicate()[1]
        expect(ended.returncode == status, "status", ended.returncode, err)
        expect((b"after 1 of 2 systems; the output file stays" in err) == bool(number), err)
        expect(sorted(each for each in os.listdir() if each[:4] in ("page", "link")) ==
               ["link", "page"], "files left", os.listdir())
    expect(open("page").read().endswith("s\n") and os.path.islink("link"), "the new file")


def terminal():
    """The progress line, and Ctrl-C."""
    master, slave = pty.openpty()
    fcntl.ioctl(slave, 0x5414, b"\x19\0\x2c\0\0\0\0\0")  # 25 lines of 44 columns
    child = subprocess.Popen(["ztsys", "check", "--timeout", "3", "127.0.10.24", "127.0.10.2", "127.0.10.25"],
                             stdout=subprocess.PIPE, stderr=slave, start_new_session=True,
                             preexec_fn=lambda: fcntl.ioctl(2, 0x540E, 0))  # its terminal
    os.close(slave)
    time.sleep(1)
    os.write(master, b"\x03")
    out = child.communicate()[0].decode()
    shown = b""
    with contextlib.suppress(OSError):
        while select.select([master], [], [], 1)[0]:
            shown += os.read(master, 4096)
    expect(child.returncode == 130, "status", child.returncode)
    expect(re.search(r"Succeeded ------- 127.0.10.24\n.*127.0.10.2 .*\n\n2 systems: 1 succeeded, 1 no "
                     r"Halvex; \d", out), out)
    expect(b"\r\x1b[K2 of 3, 1 did not succeed; waiting for 127.\r" in shown, shown)
    shown = shown.replace(b"^C", b"")
    expect(shown.endswith(b"\r\x1b[K") and all(len(line) <= 3 + 43 for line in shown.split(b"\r")), shown)


def main(programs, copies="2"):
    os.environ["PATH"] = os.path.abspath(programs) + ":" + os.environ["PATH"]
    with tempfile.TemporaryDirectory() as folder:
        settings = ("Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Moraine\\"
                    f'Zentrace Analyzer\\CurrentVersion]\n"CommonDataPath"="{folder}"\n'
                    f'"CommonApplicationPath"="{os.path.abspath(programs)}/../share/zentrace"\n')
        os.chdir(folder)
        os.mkdir("datafiles")
        with open("zentrace.reg", "w") as file:
            file.write(settings)
        os.environ |= {"ZT_REGISTRY": folder + "/zentrace.reg", "ZT_RPC_TIMEOUT": "0"}
        with agents(int(copies)):
            for part in agreement, command_lines, one_address_twice, metrics, files, terminal:
                try:
                    part(*[int(copies)][:part is agreement])
                except Exception as failed:  # a part that cannot go on is wrong, the others go on
                    expect(False, part.__name__, repr(failed))
        os.chdir("/")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
