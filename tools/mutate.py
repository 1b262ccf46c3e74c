#!/usr/bin/env python3
"""Breaks the product on purpose, one small change at a time, and sees whether a test notices.

For every change (a "mutant") the one source file is compiled with it and linked in front of the unchanged libraries
into the test programs, the layer's own first; the first failing program kills the mutant. The tree itself is never
touched. A mutant that outlives all programs is either a gap in the tests or no change in behaviour at all; the latter
are listed with their reason in tools/mutation_survivors.txt. Exit code 1: there are others.

Results are kept in build/mutation/results.jsonl, so a run that was stopped goes on where it was, and after a change
only the functions that it touched are tried again. That a header or a test has changed is not noticed: --again.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import random
import re
import resource
import shlex
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXPLANATIONS = ROOT / "tools" / "mutation_survivors.txt"

# What is mutated, and the test programs that may kill it, in this order.
LAYERS = {
    "json": (
        ["json/parser.cpp", "json/document_memory.cpp", "json/member_order.cpp"],
        ["json_tests", "state_tests", "slots_tests", "launcher_tests"],
    ),
    "state": (["state/*.cpp"], ["state_tests", "slots_tests", "launcher_tests"]),
    "slots": (
        ["slots/transition_commit.cpp", "slots/launch_context.cpp", "slots/slot_store.cpp"],
        ["slots_tests", "launcher_tests"],
    ),
}
PROGRAMS = ["json_tests", "state_tests", "slots_tests", "launcher_tests"]
MEMORY_LIMIT = 3 << 30  # bytes; a mutant that allocates without end is killed by it

# --- Reading a source file ---

Token = collections.namedtuple("Token", "kind text start end")

TOKEN = re.compile(
    r"""(?P<space>\s+)
      | (?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<string>(?:u8|u|U|L)?"(?:\\.|[^"\\\n])*")
      | (?P<char>(?:u8|u|U|L)?'(?:\\.|[^'\\\n])+')
      | (?P<number>\d(?:'?[\w.])*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<mark><<=|>>=|<=>|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL,
)


def tokens_of(source):
    """Without white space, comments and preprocessor lines. A comment keeps no place: /*name=*/ is skipped, too."""
    directives = [(m.start(), m.end()) for m in re.finditer(r"^[ \t]*#(?:[^\n\\]|\\.)*", source, re.M | re.S)]
    result = []
    position = 0
    while position < len(source):
        match = TOKEN.match(source, position)
        position = match.end()
        kind = match.lastgroup
        if kind in ("space", "comment") or any(a <= match.start() < b for a, b in directives):
            continue
        result.append(Token(kind, match.group(), match.start(), match.end()))
    return result


OPENING = {"(": ")", "[": "]", "{": "}"}


def partners(tokens):
    """index of an opening bracket -> index of the closing one, and back"""
    result, stack = {}, []
    for i, token in enumerate(tokens):
        if token.kind != "mark":
            continue
        if token.text in OPENING:
            stack.append(i)
        elif token.text in OPENING.values():
            result[stack[-1]] = i
            result[i] = stack.pop()
    return result


Function = collections.namedtuple("Function", "result body end")


class Source:
    """Tokens, with what each brace begins: "namespace", "type", "code" or "value"."""

    def __init__(self, text):
        self.text = text
        self.tokens = tokens_of(text)
        self.partner = partners(self.tokens)
        self.skipped = self._skipped()
        self.braces = {}
        self.functions = []
        self.statements = []  # index of the first token of each statement in a function body
        self._walk()

    def _skipped(self):
        """Indexes within a static_assert or a using declaration."""
        result = set()
        for i, token in enumerate(self.tokens):
            if token.text in ("static_assert", "using"):
                while self.tokens[i].text != ";":
                    result.add(i)
                    i += 1
        return result

    def _kind_of_brace(self, i, first_of_declaration, parent):
        words = [t.text for t in self.tokens[first_of_declaration:i]]
        if "namespace" in words:
            return "namespace"
        if words and words[0] in ("struct", "class", "enum", "union", "template") and "(" not in words:
            return "type"
        previous = self.tokens[i - 1]
        if previous.text in (")", "do", "else", ";", "{", "}", ":", "const", "noexcept", "try"):
            if previous.text in ("{", "}", ";", ":") and parent not in ("code",):
                return "value"
            return "code"
        return "value"

    def _walk(self):
        tokens, stack, first = self.tokens, ["namespace"], 0
        for i, token in enumerate(tokens):
            text = token.text
            if text == "{":
                kind = self._kind_of_brace(i, first, stack[-1])
                self.braces[i] = kind
                if kind == "code" and stack[-1] in ("namespace", "type"):
                    result = " ".join(t.text for t in self._result_of(first, i))
                    self.functions.append(Function(result, i, self.partner[i]))
                stack.append(kind)
                if kind != "value":
                    first = i + 1
            elif text == "}":
                if stack.pop() != "value":
                    first = i + 1
            elif text == ";":
                first = i + 1
            if stack[-1] == "code" and self._begins_statement(i):
                self.statements.append(i)

    def _result_of(self, first, brace):
        """The tokens in front of the function's name."""
        opening = next((j for j in range(first, brace) if self.tokens[j].text == "("), first)
        name = opening - 1
        while name - 2 >= first and self.tokens[name - 1].text == "::":
            name -= 2
        return self.tokens[first:name]

    def _begins_statement(self, i):
        previous = self.tokens[i - 1]
        if previous.text == "{":
            return self.braces.get(i - 1) == "code"
        if previous.text == "}":
            return self.braces.get(self.partner[i - 1]) == "code"
        if previous.text == ";":
            return not self._in_for_header(i)
        if previous.text in ("else", "do"):
            return True
        if previous.text == ":":
            return self._ends_label(i - 1)
        if previous.text == ")":
            head = self.tokens[self.partner[i - 1] - 1].text
            return head in ("if", "for", "while", "switch")
        return False

    def _in_for_header(self, i):
        depth = 0
        for j in range(i - 1, -1, -1):
            text = self.tokens[j].text
            if text in (")", "]", "}"):
                depth += 1
            elif text in OPENING:
                if depth == 0:
                    return text == "("
                depth -= 1
        return False

    def _ends_label(self, colon):
        for j in range(colon - 1, -1, -1):
            text = self.tokens[j].text
            if text in ("case", "default"):
                return True
            if text in (";", "{", "}", "?", ")", "("):
                return False
        return False

    def end_of_statement(self, i):
        """The index of the semicolon, or None where the statement holds a block."""
        while self.tokens[i].text != ";":
            if self.tokens[i].text in OPENING:
                if self.braces.get(i) == "code" or self.braces.get(i) == "type":
                    return None
                i = self.partner[i]
            elif self.tokens[i].text in OPENING.values():
                return None
            i += 1
        return i


# --- Changes ---

Change = collections.namedtuple("Change", "start end new what")  # a stretch of the text, and what replaces it

SWAPS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "true": ["false"], "false": ["true"],
}  # fmt: skip
NOT_EXPRESSIONS = {
    "return", "if", "for", "while", "do", "switch", "case", "default", "using", "const", "auto", "static", "constexpr",
    "struct", "enum", "else", "namespace", "throw", "typename", "template", "static_assert", "try", "extern",
    "constinit",
}  # fmt: skip


def spaced(source, token):
    return source[token.start - 1] == " " and source[token.end] in " \n"


def swaps(file):
    for i, token in enumerate(file.tokens):
        if token.text in ("<", ">", "&&") and not spaced(file.text, token):
            continue  # a template's bracket, a reference
        for new in SWAPS.get(token.text, []) if token.kind != "string" else []:
            yield i, Change(token.start, token.end, new, f"{token.text} -> {new}")
        if token.text == "!":
            yield i, Change(token.start, token.end, "", "! dropped")


def constants(file):
    for i, token in enumerate(file.tokens):
        if token.kind == "number":
            match = re.fullmatch(r"(0[xX])?([\da-fA-F']+?)([uUlL]*)", token.text)
            if not match:
                continue
            base = 16 if match[1] else 10
            value = int(match[2].replace("'", ""), base) + 1
            new = (f"0x{value:X}" if match[1] else str(value)) + match[3]
            yield i, Change(token.start, token.end, new, f"{token.text} -> {new}")
        elif token.kind == "char":
            yield i, Change(token.start, token.end, f"static_cast<char>({token.text} + 1)", f"{token.text} + 1")


def top_level(file, first, last):
    """The marks between two indexes that stand in no bracket."""
    i = first
    while i < last:
        if file.tokens[i].text in OPENING:
            i = file.partner[i]
        else:
            token = file.tokens[i]
            if token.text not in ("<", ">") or spaced(file.text, token):
                yield token.text
        i += 1


def is_single_test(file, first, last):
    """One comparison or one negation: swapping its mark says all that a negation of the whole would say."""
    marks = set(top_level(file, first, last))
    if marks & {"&&", "||", ";", "?"}:
        return False
    return file.tokens[first].text == "!" or bool(marks & {"==", "!=", "<", "<=", ">", ">="})


def negations(file):
    for i, token in enumerate(file.tokens):
        if token.text in ("if", "while") and file.tokens[i + 1].text == "(":
            first, last = i + 2, file.partner[i + 1]
            condition = file.text[file.tokens[first].start : file.tokens[last - 1].end]
            if ";" in top_level(file, first, last) or is_single_test(file, first, last):
                continue
            start, end = file.tokens[first].start, file.tokens[last - 1].end
            yield i, Change(start, end, f"!({condition})", f"{token.text} negated")
        elif token.text == "?":
            yield from swapped_choice(file, i)


def swapped_choice(file, question):
    """a ? b : c becomes a ? c : b."""
    tokens, i, colon = file.tokens, question + 1, None
    while True:
        text = tokens[i].text
        if text in OPENING:
            i = file.partner[i]
        elif text == ":" and colon is None:
            colon = i
        elif text in (";", ",", ":") or text in OPENING.values():
            break
        i += 1
    yes = file.text[tokens[question + 1].start : tokens[colon - 1].end]
    no = file.text[tokens[colon + 1].start : tokens[i - 1].end]
    yield question, Change(tokens[question + 1].start, tokens[i - 1].end, f"{no} : {yes}", "choices swapped")


def is_declaration(file, first):
    """`Type name`, `Type& name`, `Type<...> name`."""
    tokens, i = file.tokens, first
    if tokens[i].text in ("*", "++", "--", "("):
        return False
    while tokens[i].kind == "word" and tokens[i + 1].text == "::":
        i += 2
    i += 1
    if tokens[i].text == "<" and not spaced(file.text, tokens[i]):
        return True
    while tokens[i].text in ("*", "&"):
        i += 1
    return tokens[i].kind == "word"


def dropped_statements(file):
    for first in file.statements:
        token = file.tokens[first]
        if token.text in NOT_EXPRESSIONS or token.text in ("{", "}", ";"):
            continue
        end = file.end_of_statement(first)
        if end is None or (token.text not in ("break", "continue") and is_declaration(file, first)):
            continue
        shown = " ".join(file.text[token.start : file.tokens[end].end].split())
        yield first, Change(token.start, file.tokens[end].start, "", f"dropped: {shown}")


def early_returns(file):
    for function in file.functions:
        brace = file.tokens[function.body]
        result = function.result
        words = result.split()
        if not words or "template" in words or words[-1] == "::":
            values = [""] if words[:1] == ["template"] and words[-1] == "void" else []
        elif words[-1] == "void":
            values = [""]
        elif words[-1] == "bool":
            values = ["true", "false"]
        else:
            values = ["{}"]
        for value in values:
            statement = f"return {value};".replace(" ;", ";")
            yield function.body, Change(brace.end, brace.end, f" {statement}", f"{statement} at once")
        if words and words[-1] == "bool":
            yield from negated_results(file, function)


def negated_results(file, function):
    for first in file.statements:
        if not function.body < first < function.end or file.tokens[first].text != "return":
            continue
        end = file.end_of_statement(first)
        value = file.text[file.tokens[first + 1].start : file.tokens[end - 1].end]
        if value in ("true", "false") or is_single_test(file, first + 1, end):
            continue
        yield first, Change(file.tokens[first + 1].start, file.tokens[end - 1].end, f"!({value})", "result negated")


Mutant = collections.namedtuple("Mutant", "path line code what nth text key")


def key_of(file, path, change, code, nth):
    """Stays the same while the function does, so that a change elsewhere in the file leaves its results standing."""
    surroundings = [code, nth]
    for function in file.functions:
        first, last = file.tokens[function.body].start, file.tokens[function.end].end
        if first <= change.start and change.end <= last:
            surroundings = [file.text[first:last], change.start - first]
    parts = json.dumps([path, change.what, change.new, *surroundings])
    return hashlib.sha256(parts.encode()).hexdigest()[:24]


def mutants_of(path, text=None):
    text = text or (ROOT / path).read_text()
    file = Source(text)
    found = []
    for maker in (swaps, constants, negations, dropped_statements, early_returns):
        found += [change for index, change in maker(file) if index not in file.skipped]
    seen = collections.Counter()
    result = []
    for change in sorted(found, key=lambda c: (c.start, c.end, c.what)):
        line = text.count("\n", 0, change.start) + 1
        code = text.splitlines()[line - 1].strip()
        seen[line, change.what] += 1
        mutated = text[: change.start] + change.new + text[change.end :]
        key = key_of(file, path, change, code, seen[line, change.what])
        result.append(Mutant(path, line, code, change.what, seen[line, change.what], mutated, key))
    return result


# --- Building and running ---


class Bench:
    """The unchanged build: how each file is compiled and each test program linked."""

    def __init__(self, build):
        self.build = build
        self.compile = {}
        self.headers = {}
        self.link = {}
        self.seconds = {}

    def prepare(self):
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(self.build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
            "-DCMAKE_CXX_FLAGS=-O1 -g0", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DLAUNCHER_THOROUGH=OFF",
        ]  # fmt: skip
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["nice", "cmake", "--build", str(self.build), "--target", *PROGRAMS], check=True)
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.compile[entry["file"]] = [w for w in words if not w.endswith("ccache")]
        for program in PROGRAMS:
            self.link[program] = self.link_command(program)
            self.seconds[program] = self.time_of(program)

    def link_command(self, program):
        listed = subprocess.run(["ninja", "-C", str(self.build), "-t", "commands", program], check=True,
                                capture_output=True, text=True).stdout.strip().splitlines()[-1]  # fmt: skip
        command = listed.split(" && ")[1]
        return shlex.split(command)

    def time_of(self, program):
        started = time.monotonic()
        with tempfile.TemporaryDirectory() as directory:
            run = subprocess.run([self.program(program), "--gtest_brief=1"], cwd=directory, stdin=subprocess.DEVNULL,
                                 capture_output=True, text=True)  # fmt: skip
        if run.returncode != 0:
            sys.exit(f"{program} fails without any change:\n{run.stdout[-2000:]}")
        return time.monotonic() - started

    def program(self, name):
        return str(self.build / self.link[name][self.link[name].index("-o") + 1])

    def compile_command(self, path, source, output):
        command = self.compile[str(ROOT / path)]
        place = command.index("-o") + 1
        words = [str(output) if i == place else str(source) if word == str(ROOT / path) else word
                 for i, word in enumerate(command)]  # fmt: skip
        return [*words, "-O0", "-w"]  # it runs once: only compiling it takes time

    def precompile(self, path):
        """The headers of a file cost more than the file: they are compiled once."""
        header = self.build / "mutated-headers" / (path.replace("/", "_") + ".h")
        header.parent.mkdir(exist_ok=True)
        lines = (ROOT / path).read_text().splitlines()
        header.write_text("".join(f"{line}\n" for line in lines if line.startswith("#include")))
        command = self.compile_command(path, header, f"{header}.gch")
        command.insert(command.index("-c"), "-xc++-header")
        subprocess.run(command, cwd=self.build, check=True)
        self.headers[path] = header

    def compile_mutant(self, mutant, directory):
        source = directory / pathlib.Path(mutant.path).name
        source.write_text(mutant.text)
        command = self.compile_command(mutant.path, source, directory / "mutant.o")
        command += ["-include", str(self.headers[mutant.path])]
        return subprocess.run(command, cwd=self.build, capture_output=True).returncode == 0

    def link_mutant(self, program, directory):
        """In front of the libraries, the mutant's object stands in for the member of the same names."""
        command = list(self.link[program])
        output = command.index("-o")
        command[output + 1] = str(directory / program)
        command.insert(output, str(directory / "mutant.o"))
        run = subprocess.run(command, cwd=self.build, capture_output=True, text=True)
        if run.returncode != 0:
            raise RuntimeError(f"{program} does not link: {run.stderr[-2000:]}")

    def run_mutant(self, program, directory):
        """None: all tests passed. Else what killed it. A program that does not end is one that fails."""
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        command = [str(directory / program), "--gtest_brief=1", "--gtest_fail_fast"]
        log = directory / "log"
        with log.open("wb") as output:
            try:
                run = subprocess.run(command, cwd=directory, stdin=subprocess.DEVNULL, stdout=output,
                                     stderr=subprocess.STDOUT, preexec_fn=limit,
                                     timeout=10 + 10 * self.seconds[program])  # fmt: skip
            except subprocess.TimeoutExpired:
                return "time-out"
        if run.returncode == 0:
            return None
        with log.open("rb") as output:
            failed = re.search(rb"\[  FAILED  \] ([\w./]+)", output.read(1 << 20))
        return failed[1].decode() if failed else f"exit code {run.returncode}"

    def judge(self, mutant):
        started = time.monotonic()
        with tempfile.TemporaryDirectory(prefix="mutant-") as name:
            directory = pathlib.Path(name)
            outcome, killer = "survived", ""
            if not self.compile_mutant(mutant, directory):
                outcome = "did not compile"
            else:
                for program in LAYERS[mutant.path.split("/")[0]][1]:
                    self.link_mutant(program, directory)
                    found = self.run_mutant(program, directory)
                    if found:
                        outcome, killer = "killed", f"{program}: {found}"
                        break
                    (directory / program).unlink()
        return {"key": mutant.key, "file": mutant.path, "line": mutant.line, "what": mutant.what, "outcome": outcome,
                "killer": killer, "seconds": round(time.monotonic() - started, 2)}  # fmt: skip


# --- Results ---


def explanations():
    """(file, code, what) -> [reason, whether it was used]. Paragraphs of "key: value" lines."""
    result = {}
    if not EXPLANATIONS.exists():
        return result
    for paragraph in re.split(r"\n\s*\n", EXPLANATIONS.read_text()):
        fields = dict(re.match(r"(\w+): ?(.*)", line).groups()
                      for line in paragraph.splitlines() if line and not line.startswith("#"))  # fmt: skip
        if fields:
            for change in fields["change"].split(" || "):
                result[fields["file"], fields["line"], change] = [fields["why"], False]
    return result


def name_of(mutant):
    return mutant.what if mutant.nth == 1 else f"{mutant.what} ({mutant.nth})"


def read_results(path):
    if not path.exists():
        return {}
    return {entry["key"]: entry for entry in map(json.loads, path.read_text().splitlines())}


def report(mutants, results, known):
    table = collections.defaultdict(collections.Counter)
    unexplained = []
    for mutant in mutants:
        result = results.get(mutant.key)
        outcome = result["outcome"] if result else "not tried"
        if outcome == "survived":
            entry = known.get((mutant.path, mutant.code, name_of(mutant)))
            if entry and not entry[1]:  # one only: other lines may have the same text
                outcome = "explained"
                entry[1] = True
            else:
                unexplained.append(mutant)
        for row in (mutant.path, mutant.path.split("/")[0] + "/", "all"):
            table[row]["made"] += 1
            table[row][outcome] += 1
            table[row]["seconds"] += result["seconds"] if result else 0
    columns = ["made", "killed", "did not compile", "explained", "survived", "not tried", "seconds"]
    print(f"\n{'':<28}" + "".join(f"{c:>17}" for c in columns))
    for row in sorted(table, key=lambda r: (r == "all", r)):
        print(f"{row:<28}" + "".join(f"{table[row][c]:>17.0f}" for c in columns))
    for mutant in unexplained:
        print(f"survived: {mutant.path}:{mutant.line}: {name_of(mutant)}\n    {mutant.code}")
    return unexplained


def selected_mutants(arguments):
    paths = []
    for patterns, _ in reversed(LAYERS.values()):
        for pattern in patterns:
            paths += sorted(str(p.relative_to(ROOT)) for p in ROOT.glob(pattern))
    if arguments.file:
        unknown = set(arguments.file) - set(paths)
        if unknown:
            sys.exit("not among the mutated files: " + ", ".join(sorted(unknown)))
        paths = [p for p in paths if p in arguments.file]
    mutants = [m for path in paths for m in mutants_of(path)]
    if arguments.line:
        mutants = [m for m in mutants if m.line in arguments.line]
    if arguments.sample and arguments.sample < len(mutants):
        mutants = random.Random(arguments.seed).sample(mutants, arguments.sample)
    return mutants


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--file", action="append", help="only this file; may be repeated")
    parser.add_argument("--line", action="append", type=int, help="only this line; may be repeated")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--sample", type=int, help="only so many, by chance")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    parser.add_argument("--list", action="store_true", help="print the changes, try none")
    parser.add_argument("--report", action="store_true", help="print what is known so far, try none")
    parser.add_argument("--again", choices=["survivors", "all"], help="try these again although their result is known")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "mutation")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    mutants = selected_mutants(arguments)
    if arguments.list:
        for mutant in mutants:
            print(f"{mutant.path}:{mutant.line}: {name_of(mutant)}")
        print(len(mutants))
        return 0
    arguments.build.mkdir(parents=True, exist_ok=True)
    kept = arguments.build / "results.jsonl"
    results = read_results(kept)

    def wanted(mutant):
        known = results.get(mutant.key)
        return not known or arguments.again == "all" or (arguments.again and known["outcome"] == "survived")

    todo = [] if arguments.report else [m for m in mutants if wanted(m)]
    if todo:
        bench = Bench(arguments.build.resolve())
        bench.prepare()
        for path in sorted({mutant.path for mutant in todo}):
            bench.precompile(path)
        print(f"{len(todo)} mutants to try, {len(mutants) - len(todo)} known", flush=True)
        lock = threading.Lock()

        def judge(mutant):
            result = bench.judge(mutant)
            with lock, kept.open("a") as file:
                file.write(json.dumps(result) + "\n")
                results[mutant.key] = result
                print(f"{result['outcome']:<16}{mutant.path}:{mutant.line}: {name_of(mutant)}"
                      f"  [{result['killer']}, {result['seconds']} s]", flush=True)  # fmt: skip

        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            for future in [pool.submit(judge, mutant) for mutant in todo]:
                future.result()

    known = explanations()
    unexplained = report(mutants, results, known)
    if not (arguments.file or arguments.line or arguments.sample):
        for (path, code, what), (_, used) in known.items():
            if not used:
                print(f"explained, but not among the survivors: {path}: {what}\n    {code}")
    return 1 if unexplained else 0


if __name__ == "__main__":
    os.nice(5)
    sys.exit(main())
