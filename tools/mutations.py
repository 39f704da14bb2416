"""Makes mutations, small deliberate faults, from C++ sources: the part of tools/mutate that knows the language.

It works on tokens, not on a syntax tree, and relies on the layout that clang-format enforces: a binary operator has a space
on each side, a template bracket has none.
"""
import collections
import dataclasses
import re
import zlib

TOKEN = re.compile(
    r"(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*)"
    r'|(?P<string>"(?:\\.|[^"\\\n])*")'
    r"|(?P<char>'(?:\\.|[^'\\\n])+')"
    r"|(?P<number>\b\d[\w'.]*)"
    r"|(?P<word>[A-Za-z_]\w*)"
    r"|(?P<mark><=>|<<=|>>=|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|\.\.\.|.)",
    re.S | re.M)

MOVED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
TURNED = {"==": "!=", "!=": "=="}
SWAPPED = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&",
           "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|="}
OTHER_WORD = {
    "true": "false", "false": "true",
    "log_error": "log_info", "log_info": "log_debug", "log_debug": "log_error",
    "ANDROID_LOG_ERROR": "ANDROID_LOG_INFO", "ANDROID_LOG_INFO": "ANDROID_LOG_DEBUG",
    "ANDROID_LOG_DEBUG": "ANDROID_LOG_ERROR",
    "O_RDONLY": "O_RDWR", "O_WRONLY": "O_RDWR", "O_RDWR": "O_WRONLY", "SEEK_END": "SEEK_SET", "F_OK": "X_OK",
}
JOINS = {"&&", "||", ",", ";", "=", "return", "?", ":"}
# The limit per statement. Moved limits, dropped operands and other flags are made first and always: each needs its own
# test. Of the rest, a test that notices the first (a condition, a dropped statement, a result) mostly notices the others.
MOST_PER_STATEMENT = 1
OPENING, CLOSING = "([{", ")]}"
# What begins a statement that is no expression.
KEYWORDS = {"if", "for", "while", "do", "switch", "case", "default", "else", "using", "static_assert", "constexpr", "const",
            "static", "auto", "struct", "class", "enum", "namespace", "template", "return", "extern", "typedef", "public",
            "private", "explicit", "constinit", "inline", "char", "int", "long", "short", "unsigned", "signed", "bool",
            "void", "delete", "throw", "try"}


@dataclasses.dataclass(frozen=True)
class Mutation:
    file: str
    before: str  # the statement, its whitespace normalized: with |file| and |occurrence| what identifies a mutation
    after: str
    occurrence: int  # counts equal changes of equal statements of the file, from 1
    start: int
    end: int
    replacement: str

    @property
    def key(self):
        return self.file, self.before, self.after, self.occurrence

    def apply(self, source):
        return source[:self.start] + self.replacement + source[self.end:]


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    spaced: bool = False  # a blank or line break on each side


def normalize(text):
    text = re.sub(r'("(?:\\.|[^"\\\n])*")|//[^\n]*', lambda match: match[1] or "", text)
    return " ".join(text.split())


def tokenize(source):
    tokens = [Token(match.lastgroup, match[0], match.start(), match.end())
              for match in TOKEN.finditer(source) if match.lastgroup != "skip"]
    for token in tokens:
        token.spaced = source[token.start - 1:token.start].isspace() and source[token.end:token.end + 1].isspace()
    return tokens


def is_chosen(token):
    """Half of the texts, the same ones wherever they stand."""
    return zlib.crc32(token.text.encode()) % 2 == 0


class Source:
    """The tokens of one file and the mutations made of them."""

    def __init__(self, file, text):
        self.file, self.text = file, text
        self.tokens = tokenize(text)
        self.partner = {}
        open_brackets = []
        for i, token in enumerate(self.tokens):
            if token.kind == "mark" and token.text in OPENING:
                open_brackets.append(i)
            elif token.kind == "mark" and token.text in CLOSING and open_brackets:
                start = open_brackets.pop()
                self.partner[start], self.partner[i] = i, start
        self.excluded = self.find_excluded()
        self.whole_conditions = {}  # the condition of an "if", by its first token: its last one
        self.edits = []  # start, end, replacement

    # What has no behaviour of its own: assertions, attributes, aliases, template parameters.
    def find_excluded(self):
        excluded = set()
        for i, token in enumerate(self.tokens):
            end = None
            if token.text in ("static_assert", "__attribute__") and self.text_at(i + 1) == "(":
                end = self.partner.get(i + 1)
            elif token.text == "[" and self.text_at(i + 1) == "[":
                end = self.partner.get(i)
            elif token.text in ("using", "typedef"):
                end = self.next_text(i, ";")
            elif token.text == "extern":
                end = i + 1
            elif token.text == "template":
                end = self.next_text(i, ">")
            if end is not None:
                excluded.update(range(i, end + 1))
        return excluded

    def text_at(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def next_text(self, i, text):
        while i < len(self.tokens) and self.tokens[i].text != text:
            i += 1
        return min(i, len(self.tokens) - 1)

    def edit(self, first, last, replacement):
        self.edits.append((self.tokens[first].start, self.tokens[last].end, replacement))

    def span(self, first, last):
        return self.text[self.tokens[first].start:self.tokens[last].end]

    # The first token of the operand that ends before token |i|, and the last of the one that begins after it. An operand
    # ends at a bracket of its own level or at one of |ends|.
    def operand_before(self, i, ends):
        j = i - 1
        while j >= 0:
            text = self.tokens[j].text
            if self.tokens[j].kind == "mark" and text in CLOSING and j in self.partner:
                if text == "}" and self.text_at(self.partner[j] - 1) in ("{", "}", ";", ")"):
                    break
                j = self.partner[j]
            elif text in OPENING or text in ends:
                break
            j -= 1
        return j + 1

    def operand_after(self, i, ends):
        j = i + 1
        while j < len(self.tokens):
            text = self.tokens[j].text
            if text in CLOSING or text in ends:
                break
            j = self.partner.get(j, j) if text in OPENING else j
            j += 1
        return j - 1

    def mutations(self):
        self.move_limits()
        self.drop_operands()
        self.change_flags()
        always = set(self.edits)
        self.change_conditions()
        self.drop_statements()
        self.change_results()
        self.change_tokens()
        counts, of_statement = collections.Counter(), collections.Counter()
        kept = []
        for start, end, replacement in dict.fromkeys(self.edits):
            first, last = self.statement_around(start, end)
            of_statement[first] += 1
            if of_statement[first] <= MOST_PER_STATEMENT or (start, end, replacement) in always:
                kept.append((start, end, replacement, first, last))
        for start, end, replacement, first, last in sorted(kept):
            before = normalize(self.text[first:last])
            after = normalize(self.text[first:start] + replacement + self.text[end:last])
            counts[before, after] += 1
            yield Mutation(self.file, before, after, counts[before, after], start, end, replacement)

    # Where the statement around an edit begins and ends.
    def statement_around(self, start, end):
        ends = (";", "{", "}")
        previous = next((t.end for t in reversed(self.tokens) if t.end <= start and t.text in ends), 0)
        first = next((t.start for t in self.tokens if t.start >= previous), start)
        last = next((t.end for t in self.tokens if t.start >= end - 1 and t.text in ends), len(self.text))
        return first, last

    # Whether the statement or block at token |i| ends with a jump: then its condition is a guard.
    def leaves(self, i):
        if self.text_at(i) in ("return", "break", "continue"):
            return True
        end = self.partner[i] if self.text_at(i) == "{" else self.next_text(i, ";") + 1
        last = max((j for j in range(i, end - 1) if self.text_at(j) in ("{", "}", ";")), default=i - 1)
        return self.text_at(last + 1) in ("return", "break", "continue")

    def move_limits(self):
        for i, token in enumerate(self.tokens):
            if i not in self.excluded and token.text in MOVED and token.spaced:
                self.edit(i, i, MOVED[token.text])

    def change_flags(self):
        for i, token in enumerate(self.tokens):
            if re.fullmatch(r"O_[A-Z]+", token.text) and self.text_at(i - 1) == "|":
                self.edit(i - 1, i, "")
            elif re.fullmatch(r"O_[A-Z]+|SEEK_END|F_OK|RTLD_NOW", token.text) and token.text in OTHER_WORD:
                self.edit(i, i, OTHER_WORD[token.text])
            elif re.fullmatch(r"0[0-7]{3}", token.text):  # a file mode
                self.edit(i, i, "0600")

    # if (A) -> if ((A) && false), and if ((A) || true) unless that is a guard, which every success passes. A loop only
    # the first, so that it ends.
    def change_conditions(self):
        for i, token in enumerate(self.tokens):
            if i in self.excluded or token.text not in ("if", "while", "for") or self.text_at(i + 1) != "(":
                continue
            first, last = i + 2, self.partner[i + 1] - 1
            if token.text == "for":
                semicolons = [j for j in range(first, last) if self.tokens[j].text == ";"]
                if len(semicolons) != 2 or semicolons[1] == semicolons[0] + 1:
                    continue
                first, last = semicolons[0] + 1, semicolons[1] - 1
            condition = self.span(first, last)
            if re.search(r"[^=!<>]=[^=]|;", condition) and token.text != "while":
                continue  # declares something
            self.whole_conditions[first] = last
            joins = {self.tokens[j].text for j in range(first, last)}
            if "||" not in joins:
                self.edit(first, last, f"({condition}) && false")
            if "&&" not in joins and token.text == "if" and not self.leaves(self.partner[i + 1] + 1):
                self.edit(first, last, f"({condition}) || true")
        for i, token in enumerate(self.tokens):
            if token.text == "?":
                first = self.operand_before(i, {",", ";", "=", "return", ":", "?", "<<", "&&", "||"})
                self.edit(first, i - 1, f"!({self.span(first, i - 1)})")

    # A && B -> A and B, and so with ||.
    def drop_operands(self):
        for i, token in enumerate(self.tokens):
            if i in self.excluded or token.text not in ("&&", "||") or not token.spaced:
                continue
            ends = {",", ";", "=", "return", "?", ":", "||"} | ({"&&"} if token.text == "&&" else set())
            right = self.operand_after(i, ends)
            self.edit(i, right, "")
            left = self.operand_before(i, ends)
            if self.text_at(left - 1) != token.text:
                self.edit(left, i, "")

    def drop_statements(self):
        for i, token in enumerate(self.tokens):
            if token.text == "{" and i in self.partner and self.is_block(i):
                self.drop_in_block(i)
            elif token.text in ("if", "while", "for") and self.text_at(i + 1) == "(":
                self.drop_statement(self.partner[i + 1] + 1)
            elif token.text == "else":
                self.drop_statement(i + 1)

    def is_block(self, i):
        return self.text_at(i - 1) in (")", "else", "do", "noexcept", "const", "override")

    def drop_in_block(self, i):
        j = i + 1
        while j < self.partner[i]:
            if self.tokens[j].text == "{" and j in self.partner:
                j = self.partner[j] + 1
                continue
            end = self.drop_statement(j)
            j = end + 1

    # Drops the statement at token |i| if it is an expression or a jump; returns its last token.
    def drop_statement(self, i):
        end = i
        while end < len(self.tokens) and self.tokens[end].text not in (";", "{", "}"):
            end = self.partner[end] if self.tokens[end].text in "([" and end in self.partner else end
            end += 1
        if self.text_at(end) == "{" and self.tokens[i].kind == "word" and not self.is_block(end):
            while self.text_at(end) == "{":  # the braces of a value
                end = self.next_text(self.partner[end], ";") if self.text_at(self.partner[end] + 1) != "{" else end
                break
        if self.text_at(end) != ";":
            return end if self.text_at(end) != "{" else end - 1
        first = self.tokens[i]
        statement = self.span(i, end)
        jump = statement in ("break;", "continue;", "return;")
        declares = re.match(r"(\w+)(::\w+)*(<[^;()]*>)?( const)?[*&]* [*&]*\w+", statement)
        is_expression = (first.kind == "word" or first.text in ("::", "*", "++", "--", "(")) and (
            first.text not in KEYWORDS and not declares)
        logs = re.match(r'log_(error|info|debug)\("', statement)  # the change of its text shows as much
        if jump or (is_expression and not logs and not statement.startswith("va_") and re.search(r"[(=]|\+\+|--", statement)):
            self.edit(i, end, ";")
        return end

    # return X -> another result; a comparison is turned elsewhere.
    def change_results(self):
        for i, token in enumerate(self.tokens):
            if token.text != "return" or self.text_at(i + 1) in (";", "{"):
                continue
            last = self.operand_after(i, {";"})
            result = self.span(i + 1, last)
            if result in ("-1", "1"):  # not a success into a failure, which anything notices
                self.edit(i + 1, last, "0")
            elif not re.fullmatch(r"0|'\\0'|true|false|nullptr|\*this|.*(==|!=|&&|\|\|| <=? | >=? ).*", result, re.S):
                self.edit(i + 1, last, "{}")

    def change_tokens(self):
        for i, token in enumerate(self.tokens):
            if i in self.excluded:
                continue
            if token.kind == "mark":
                self.change_mark(i, token)
            elif token.kind == "number":
                self.change_number(i, token)
            elif token.kind == "string":
                self.change_string(i, token)
            elif token.kind == "char" and self.text_at(i - 1) not in ("<", "<=", ">", ">="):
                self.edit(i, i, "'\\0'" if token.text != "'\\0'" else "'0'")
            elif token.text.startswith("log_") and self.text_at(i + 2)[:1] == '"' and is_chosen(self.tokens[i + 2]):
                pass  # of a message either the priority changes or the text
            elif token.text in OTHER_WORD:
                self.edit(i, i, OTHER_WORD[token.text])
            elif token.text == "sizeof":
                last = self.partner[i + 1] if self.text_at(i + 1) == "(" else i + 1
                while self.text_at(last + 1) == "." or self.text_at(last + 1) == "->":
                    last += 2
                self.edit(i, last, f"({self.span(i, last)} - 1)")

    def change_mark(self, i, token):
        if token.text in TURNED and token.spaced:
            whole = any(first < i < last and not {"&&", "||"} & {self.tokens[j].text for j in range(first, last)}
                        for first, last in self.whole_conditions.items())
            joined = any(self.text_at(k) in ("&&", "||") for k in (self.operand_before(i, JOINS) - 1,
                                                                    self.operand_after(i, JOINS) + 1))
            chooses = self.text_at(self.operand_after(i, JOINS) + 1) == "?"
            if not (whole or joined or chooses):
                self.edit(i, i, TURNED[token.text])
        elif token.text in SWAPPED and token.spaced and not self.text_at(i + 1).startswith("O_"):
            self.edit(i, i, SWAPPED[token.text])
        elif token.text == "!" and i not in self.whole_conditions:
            self.edit(i, i, "")

    def change_number(self, i, token):
        around = self.text_at(i - 1), self.text_at(i + 1)
        is_result = "return" in (self.text_at(i - 1), self.text_at(i - 2))
        counts = self.is_limit(i) or (around[0] in SWAPPED and self.tokens[i - 1].spaced)  # no sign, as in -1
        value = re.fullmatch(r"(0x[0-9a-fA-F]+|0|[1-9]\d*)(u?)", token.text)
        if counts and value and not is_result:
            self.edit(i, i, f"{int(value[1], 0) + 1}{value[2]}")  # an off-by-one that permits too much

    def is_limit(self, i):
        return any(t.text == "constexpr" for t in self.tokens[max(0, i - 8):i])

    def change_string(self, i, token):
        if self.tokens[i - 1].kind == "string" and i % 5:  # one of five lines of a long table
            return
        if not is_chosen(token):
            return
        if self.text_at(i - 1) == "extern":
            return
        fixed = re.sub(r"%[-+ #0-9.*]*[hlzjt]*[a-zA-Z]|\\x[0-9a-fA-F]+|\\.", lambda match: "\0" * len(match[0]), token.text)
        letters = [k for k, letter in enumerate(fixed) if letter.isalpha()] or [
            k for k, letter in enumerate(fixed) if letter not in '"\0']
        if not letters:
            return
        at = letters[len(letters) // 2]
        other = {"z": "a", "Z": "A"}.get(token.text[at], chr(ord(token.text[at]) + 1))
        self.edit(i, i, token.text[:at] + other + token.text[at + 1:])


def mutations_of(file, text):
    return list(Source(file, text).mutations())


def parse_list(text):
    """The entries of a list of mutations: (where, before, after). Lines that start with # are comments."""
    blocks = re.split(r"\n\s*\n", "\n".join(line for line in text.splitlines() if not line.startswith("#")).strip())
    for block in filter(None, blocks):
        lines = block.split("\n")
        if len(lines) != 3 or lines[1][:1] != "-" or lines[2][:1] != "+" or ": " not in lines[0]:
            raise ValueError(f"not an entry of three lines, \"FILE: text\", \"- before\", \"+ after\":\n{block}")
        yield lines[0], lines[1][1:].strip(), lines[2][1:].strip()
