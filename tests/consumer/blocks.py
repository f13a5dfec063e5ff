"""The blocks of documents: each C++ block is a program, and the text block below it is what it prints; or a document is
a way that is followed from its first block to its last.

blocks.py extract FOLDER DOCUMENT...
    writes them as FOLDER/DOCUMENT_CHAPTER.cpp and .txt; a chapter has one at most
blocks.py run FOLDER PROGRAMS PREFIX MAIN-APPLICATION
    runs the programs of these names in PROGRAMS, each in a folder of its own, while the helper that is installed in
    PREFIX serves
blocks.py follow DOCUMENT FOLDER PREFIX
    does in the empty FOLDER, in a private home, what the document says: its shell blocks are commands, with the text
    block below as what they say in the end, in any order, and a block below "`NAME`:" is that file. PREFIX stands for
    /usr/local and FOLDER for /home/me; what still runs in FOLDER afterwards is ended.
"""
import contextlib, difflib, fcntl, os, pathlib, re, shlex, subprocess, sys, tempfile, time

CHAPTER = re.compile(r"^#+ (.*)$", re.M)
BLOCK = re.compile(r"^```cpp\n(.*?)^```$(?:\n\n[^`]*?^```text\n(.*?)^```$)?", re.M | re.S)

def extract(folder, *documents):
    for document in map(pathlib.Path, documents):
        text = document.read_text()
        for block in BLOCK.finditer(text):
            chapter = CHAPTER.findall(text, 0, block.start())[-1]
            name = re.sub(r"\W+", "_", f"{document.stem}_{chapter}".lower())
            if block[2] is None:
                sys.exit(f"{document}: no text block tells what the program under '{chapter}' prints")
            if pathlib.Path(folder, f"{name}.cpp").exists():
                sys.exit(f"{document}: more than one program under '{chapter}'")
            pathlib.Path(folder, f"{name}.cpp").write_text(block[1])
            pathlib.Path(folder, f"{name}.txt").write_text(block[2])

@contextlib.contextmanager
def only_one():
    """The main application and a port are one for all tests of this machine."""
    lock = os.open("/tmp", os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    fcntl.flock(lock, fcntl.LOCK_EX)
    yield
    os.close(lock)

@contextlib.contextmanager
def helper(prefix, application, environment):
    with open(os.devnull, "w") as nowhere:
        started = [subprocess.Popen([application, "--limit", "60"], env=environment, stdout=nowhere)]
        try:
            started.append(subprocess.Popen([f"{prefix}/libexec/loginhelper.app/Contents/MacOS/loginhelper"],
                                            env=environment, stderr=nowhere))
            deadline = time.monotonic() + 20
            while subprocess.run([f"{prefix}/bin/loginhelperctl", "test"], env=environment, stdout=nowhere,
                                 stderr=nowhere).returncode and time.monotonic() < deadline:
                time.sleep(0.05)
            yield
        finally:
            for process in started:
                process.kill(), process.wait()

def run_one(program, expected, environment):
    with tempfile.TemporaryDirectory() as work:
        run = subprocess.run([program], cwd=work, env=environment, stdin=subprocess.DEVNULL, timeout=60,
                             stdout=subprocess.PIPE, text=True)
    printed = [line.rstrip() for line in run.stdout.splitlines()]
    difference = list(difflib.unified_diff(expected.read_text().splitlines(), printed, "document", "printed",
                                           lineterm=""))
    if run.returncode or difference:
        print(os.path.basename(program), f"ended with status {run.returncode}", *difference, sep="\n  ")
    return run.returncode == 0 and not difference

def run(folder, programs, prefix, application):
    expected = sorted(pathlib.Path(folder).glob("*.txt"))
    with only_one(), tempfile.TemporaryDirectory() as place:
        environment = dict(os.environ, HOME=place, XDG_CONFIG_HOME=place, XDG_RUNTIME_DIR=place, LC_ALL="C")
        for name in "CFFIXED_USER_HOME", "PORT_SYSTEM_VERSION":
            environment.pop(name, None)
        with helper(prefix, application, environment):
            return all([run_one(f"{programs}/{path.stem}", path, environment) for path in expected])

# What is said may still be on its way when the commands have ended, and comes from several programs.
CHECK = r"""
tries=500
until sed "s|$folder|/home/me|g" "$1.said" | sort | diff "$1.expected" - >"$1.difference"; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || { echo "$2:"; cat "$1.difference"; exit 1; }
    sleep 0.02
done
"""

def script_of(text, notes):
    """The document as a script; what its commands are to say and have said is kept below `notes`."""
    blocks = list(re.finditer(r"(?:^`([^`]+)`:\n\n)?^```(\w+)\n(.*?)^```$", text, re.M | re.S))
    script = f"set -e\nfolder=$PWD\ncheck() (\n{CHECK})\n"
    for number, (block, below) in enumerate(zip(blocks, blocks[1:] + [None])):
        note = f"{notes}/{number}"
        if block[1]:
            script += f"cat >'{block[1]}' <<'END OF THE FILE'\n{block[3]}END OF THE FILE\n"
        elif block[2] == "sh":
            script += f"{{\n{block[3]}}} >{note}.said 2>&1 || {{ cat {note}.said; exit 1; }}\n"
            if below and below[2] == "text":
                pathlib.Path(f"{note}.expected").write_text("".join(sorted(below[3].splitlines(True))))
                script += f"check {note} '{CHAPTER.findall(text, 0, block.start())[-1]}'\n"
    return script

def end_programs_of(folder):
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if os.readlink(process / "exe").startswith(folder + "/"):
                os.kill(int(process.name), 9)

def follow(document, folder, prefix):
    folder = os.path.realpath(folder)
    text = pathlib.Path(document).read_text().replace("/usr/local", shlex.quote(prefix))
    with only_one(), tempfile.TemporaryDirectory() as notes:
        environment = dict(os.environ, HOME=f"{folder}/home", XDG_RUNTIME_DIR=f"{notes}/run", CMAKE_PREFIX_PATH=prefix,
                           LC_ALL="C.UTF-8")
        for name in "CFFIXED_USER_HOME", "PORT_SYSTEM_VERSION", "XDG_CONFIG_HOME":
            environment.pop(name, None)
        os.mkdir(environment["HOME"])
        os.mkdir(environment["XDG_RUNTIME_DIR"], 0o700)
        try:
            run = subprocess.run(["sh"], cwd=folder, env=environment, input=script_of(text, notes), text=True)
        finally:
            end_programs_of(folder)
    return run.returncode == 0

if sys.argv[1] == "extract":
    extract(*sys.argv[2:])
elif sys.argv[1] == "follow":
    sys.exit(not follow(*sys.argv[2:]))
else:
    sys.exit(not run(*sys.argv[2:]))
