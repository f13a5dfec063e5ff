"""The README's C++ blocks: each is a program, and the text block below it is what it prints.

readme.py extract README FOLDER    writes them as FOLDER/NUMBER.cpp and FOLDER/NUMBER.txt
readme.py run FOLDER PROGRAMS      runs PROGRAMS/readme_NUMBER, each in a folder and a home of its own
"""
import difflib, os, pathlib, re, subprocess, sys, tempfile

BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.M | re.S)

def extract(readme, folder):
    blocks = BLOCK.findall(pathlib.Path(readme).read_text())
    programs = [i for i, (language, _) in enumerate(blocks) if language == "cpp"]
    if not programs:
        sys.exit("no C++ block found")
    for number, i in enumerate(programs, 1):
        if blocks[i + 1 : i + 2] == [] or blocks[i + 1][0] != "text":
            sys.exit(f"C++ block {number} has no text block below it with what it prints")
        pathlib.Path(folder, f"{number}.cpp").write_text(blocks[i][1])
        pathlib.Path(folder, f"{number}.txt").write_text(blocks[i + 1][1])

def run_one(program, expected):
    with tempfile.TemporaryDirectory() as place:
        home, work = place + "/home", place + "/work"
        os.mkdir(home), os.mkdir(work)
        environment = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home, LC_ALL="C")
        run = subprocess.run([program], cwd=work, env=environment, stdin=subprocess.DEVNULL, timeout=60,
                             stdout=subprocess.PIPE, text=True)
    lines = expected.read_text().splitlines()
    printed = [line.rstrip() for line in run.stdout.splitlines()]
    difference = list(difflib.unified_diff(lines, printed, "README", "printed", lineterm=""))
    good = run.returncode == 0 and not difference
    print("ok  " if good else "FAIL", os.path.basename(program), f"status {run.returncode}", *difference, sep="\n  ")
    return good

def run(folder, programs):
    expected = sorted(pathlib.Path(folder).glob("*.txt"), key=lambda path: int(path.stem))
    return all([run_one(f"{programs}/readme_{path.stem}", path) for path in expected])

if sys.argv[1] == "extract":
    extract(*sys.argv[2:])
else:
    sys.exit(not run(*sys.argv[2:]))
