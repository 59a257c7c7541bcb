"""Installs a build tree into empty folders, looks at what lies there, and builds and runs applications with it.

usage: install.py CHECK SOURCE-TREE BUILD-TREE LIBDIR VERSION CMAKE C-COMPILER C++-COMPILER -m32|-m64
"""
import os
import re
import subprocess
import sys
import tempfile

CHECK, TREE, BUILD, LIBDIR, VERSION, CMAKE, CC, CXX, WORD_SIZE = sys.argv[1:]
HERE = os.path.dirname(os.path.abspath(__file__))
CONSUMER = os.path.join(HERE, "consumer")
WORDS_OUTPUT = "3 words, the second is the far end\n"
DIAL_OUTPUT = "dialled\n"


def run(*command, **environment):
    """What the command prints; its failure fails the check."""
    done = subprocess.run(command, capture_output=True, text=True, env={**os.environ, **environment})
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def expect(condition, what):
    if not condition:
        sys.exit(what)


def install(prefix, *options, **environment):
    run(CMAKE, "--install", BUILD, "--prefix", prefix, *options, **environment)


def files_below(folder):
    return sorted(os.path.relpath(os.path.join(path, name), folder)
                  for path, _, names in os.walk(folder) for name in names)


def of_the_tree(folder, below):
    """Where the files of a folder of the tree come to lie."""
    return [os.path.join(below, name) for name in files_below(os.path.join(TREE, folder))
            if os.path.basename(name) not in ("CMakeLists.txt", ".clang-format")]


def layout():
    """The files of each component: those listed, and those that go by what the tree has."""
    components = {}
    for line in open(os.path.join(HERE, "layout.txt")):
        line = line.split("#")[0].strip()
        if line.startswith("["):
            files = components.setdefault(line.strip("[]"), [])
        elif line:
            files.append(re.sub("^LIB/", LIBDIR + "/", line))
    doc = "share/doc/quarnelBE"
    components["development"] += [f"{doc}/README.md", f"{doc}/CHANGELOG.md"]
    components["development"] += of_the_tree("docs", f"{doc}/docs") + of_the_tree("examples", f"{doc}/examples")
    for page in of_the_tree("man", "share/man"):
        if re.fullmatch(r"share/man/man([1358])/[^/]+\.\1[a-z]*", page):
            components["development" if "/man3/" in page else "tools"].append(page)
    components["tools"] += of_the_tree("completions/bash", "share/bash-completion/completions")
    components["tools"] += of_the_tree("completions/zsh", "share/zsh/vendor-completions")
    return {name: sorted(files) for name, files in components.items()}


def found_at_run_time(prefix):
    """The environment in which the loader finds both libraries."""
    return {"LD_LIBRARY_PATH": f"{prefix}/{LIBDIR}:{prefix}/{LIBDIR}/quarnel/stand-in"}


def eachComponentHasItsFiles(work):
    everything = []
    for component, files in layout().items():
        prefix = os.path.join(work, component)
        install(prefix, "--component", component)
        laid = files_below(prefix)
        expect(laid == files, f"{component}: not as layout.txt: {sorted(set(laid) ^ set(files))}")
        everything += files
    install(os.path.join(work, "all"))
    expect(files_below(os.path.join(work, "all")) == sorted(everything), "all is not the sum of the components")


def destdirIsInNoFile(work):
    install("/opt/quarnel", DESTDIR=work)
    expect(os.listdir(work) == ["opt"], f"not below the prefix: {os.listdir(work)}")
    for name in files_below(work):
        expect(work.encode() not in open(os.path.join(work, name), "rb").read(), f"{name} names DESTDIR")
    text = open(f"{work}/opt/quarnel/{LIBDIR}/pkgconfig/quarnelBE.pc").read()
    expect("prefix=/opt/quarnel\n" in text and f"Version: {VERSION}\n" in text, text)


def platformsOwnLibraryStays(work):
    os.makedirs(f"{work}/{LIBDIR}")
    own = f"{work}/{LIBDIR}/libvxAPI.so"
    open(own, "w").write("the platform's own")
    install(work)
    expect(open(own).read() == "the platform's own", "the platform's libvxAPI.so was overwritten")
    expect(open(f"{work}/{LIBDIR}/quarnel/stand-in/libvxAPI.so", "rb").read(4) == b"\x7fELF", "no stand-in")


def headersCompileAlone(work):
    install(work, "--component", "development")
    headers = [name for name in files_below(f"{work}/include") if name.endswith(".h")]
    expect(len(headers) > 20, f"{len(headers)} headers")
    for header in headers:
        for compiler, language, standard in ((CC, "c", "c11"), (CXX, "c++", "c++17")):
            done = subprocess.run([compiler, "-x", language, f"-std={standard}", WORD_SIZE, "-fsyntax-only", "-pedantic",
                                   "-Wall", "-Wextra", "-Werror", "-I", f"{work}/include", "-"],
                                  input=f"#include <{header}>\nextern int notEmpty;\n", capture_output=True, text=True)
            expect(done.returncode == 0, f"{header} as {standard}:\n{done.stderr}")


def nothingNamesAFolderOfTheBuild(work):
    install(work, "--strip") # what debugging tells does
    binaries = [name for name in files_below(work) if name.startswith("bin/") or re.search(r"\.so[.\d]*$", name)]
    expect(len(binaries) == 10, f"programs and libraries: {binaries}")
    for name in binaries:
        dynamic = run("readelf", "-dW", os.path.join(work, name))
        expect("(RUNPATH)" not in dynamic and "(RPATH)" not in dynamic, f"{name} has a run path")
    for name in files_below(work):
        expect(BUILD.encode() not in open(os.path.join(work, name), "rb").read(), f"{name} names the build tree")


def toolsRun(work):
    install(work)
    for tool in os.listdir(f"{work}/bin"):
        told = run(f"{work}/bin/{tool}", "--version", **found_at_run_time(work))
        expect(VERSION in told, f"{tool} --version: {told}")


def programOfTheUnversionedNameRuns(work):
    """One that was linked when the library's name had no version, as its own record of the name says."""
    install(work)
    open(f"{work}/names.c", "w").write("".join(f"void {name}(void); void {name}(void) {{}}\n"
                                               for name in ("mkcopy", "freecopy", "parseln", "fmtStr")))
    os.mkdir(f"{work}/before")
    run(CC, WORD_SIZE, "-shared", "-fPIC", "-Wl,-soname,libquarnelBE.so", f"{work}/names.c", "-o",
        f"{work}/before/libquarnelBE.so")
    run(CC, WORD_SIZE, f"-I{work}/include", f"{CONSUMER}/wordCount.c", f"-L{work}/before", "-lquarnelBE", "-o",
        f"{work}/program")
    expect("[libquarnelBE.so]" in run("readelf", "-dW", f"{work}/program"), "the program names a version")
    told = run(f"{work}/program", **found_at_run_time(work))
    expect(told == WORDS_OUTPUT, told)


def pkgConfigConsumersRun(work):
    install(work)
    search = {"PKG_CONFIG_LIBDIR": f"{work}/{LIBDIR}/pkgconfig"}

    def flags(*words):
        return run("pkg-config", *words, **search).split()

    expect(flags("--modversion", "quarnelBE") == [VERSION], "quarnelBE has another version")
    for compiler, source, packages, output in ((CC, "wordCount.c", ["quarnelBE"], WORDS_OUTPUT),
                                               (CXX, "dialOnce.cpp", ["quarnelBE", "vxAPI-stand-in"], DIAL_OUTPUT)):
        program = f"{work}/{source}.program"
        run(compiler, WORD_SIZE, *flags("--cflags", *packages), f"{CONSUMER}/{source}", *flags("--libs", *packages),
            "-o", program)
        told = run(program, **found_at_run_time(work))
        expect(told == output, f"{source}: {told}")
        expect("libquarnelBE.so.1]" in run("readelf", "-dW", program), f"{source} does not record the version")


def cmakeConsumersRun(work):
    install(work)
    run(CMAKE, "-S", CONSUMER, "-B", f"{work}/build", f"-DCMAKE_PREFIX_PATH={work}", f"-DCMAKE_C_COMPILER={CC}",
        f"-DCMAKE_CXX_COMPILER={CXX}", f"-DCMAKE_C_FLAGS={WORD_SIZE}", f"-DCMAKE_CXX_FLAGS={WORD_SIZE}",
        # -m32 leaves CMake without a word for the folder of libraries.
        f"-DCMAKE_LIBRARY_ARCHITECTURE={os.path.basename(LIBDIR)}", "-G", "Ninja")
    run(CMAKE, "--build", f"{work}/build")
    for program, output in (("wordCount", WORDS_OUTPUT), ("dialOnce", DIAL_OUTPUT)):
        told = run(f"{work}/build/{program}", **found_at_run_time(work))
        expect(told == output, f"{program}: {told}")


def tutorialAnswersAsItSays(work):
    install(work)
    told = run(sys.executable, f"{TREE}/tests/examples/tutorial.py", f"{TREE}/docs/tutorial.md", WORD_SIZE,
               PATH=f"{work}/bin:{os.environ['PATH']}", PKG_CONFIG_LIBDIR=f"{work}/{LIBDIR}/pkgconfig",
               **found_at_run_time(work))
    expect(", 0 answered otherwise" in told, told)


with tempfile.TemporaryDirectory() as work:
    globals()[CHECK](work)
    print(f"{CHECK}: as it should be")
