"""The C++ blocks of documents: each is a program, and the text block below it is what it prints.

blocks.py extract FOLDER DOCUMENT...
    writes them as FOLDER/DOCUMENT_NUMBER.cpp and .txt, the document's name without its end
blocks.py run FOLDER PROGRAMS PREFIX MAIN-APPLICATION
    runs the programs of these names in PROGRAMS, each in a folder of its own, while the helper that is installed in
    PREFIX serves
"""
import contextlib, difflib, fcntl, os, pathlib, re, subprocess, sys, tempfile, time

BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.M | re.S)

def extract(folder, *documents):
    for document in map(pathlib.Path, documents):
        blocks = BLOCK.findall(document.read_text())
        programs = [i for i, (language, _) in enumerate(blocks) if language == "cpp"]
        if not programs:
            sys.exit(f"no C++ block found in {document}")
        for number, i in enumerate(programs, 1):
            if blocks[i + 1 : i + 2] == [] or blocks[i + 1][0] != "text":
                sys.exit(f"{document}: C++ block {number} has no text block below it with what it prints")
            for end, (_, text) in zip(("cpp", "txt"), blocks[i : i + 2]):
                pathlib.Path(folder, f"{document.stem}_{number}.{end}").write_text(text)

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

if sys.argv[1] == "extract":
    extract(*sys.argv[2:])
else:
    sys.exit(not run(*sys.argv[2:]))
