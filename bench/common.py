"""What the commands of this folder share: the build, the machine, tables and their place in the page."""
import os
import pathlib
import platform
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/performance.md"
WORD_SIZES = {"x86_64": "OFF", "i386": "ON"}


def need_packages():
    subprocess.run(["bash", "-c", '. cmake/packages.sh; need "${BENCH_PACKAGES[@]}"'], cwd=ROOT, check=True)


def build(word_size):
    """Builds all benchmarks of a word size and returns the folder of their programs."""
    tree = ROOT / "build/bench" / word_size
    subprocess.run(["cmake", "-S", ROOT, "-B", tree, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DQN_BENCH=ON", "-DQN_TOOLS=ON",
                    f"-DQN_I386={WORD_SIZES[word_size]}"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", tree, "--target", "benchmarks"], check=True, stdout=subprocess.DEVNULL)
    return tree / "bench"


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 "unknown")
    return f"{model}, {os.cpu_count()} processors, Linux {platform.release().split('-')[0]}\n"


def table(head, lines):
    text = "| " + " | ".join(head) + " |\n|" + " --- |" * len(head) + "\n"
    return text + "".join("| " + " | ".join(line) + " |\n" for line in lines)


def put_into_page(command, text):
    """Between the marks that name the command whose figures they hold."""
    begin, end = f"<!-- figures: {command} -->\n", "<!-- end of figures -->\n"
    before, rest = PAGE.read_text().split(begin)
    PAGE.write_text(before + begin + text + end + rest.split(end, 1)[1])
