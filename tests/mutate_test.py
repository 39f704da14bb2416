#!/usr/bin/env python3
"""Checks what tools/mutate makes of a small source, that an entry of its lists that fits nothing fails, and that the
lists of this tree fit its sources."""
import pathlib, shutil, subprocess, sys, tempfile

PROJECT = pathlib.Path(__file__).parents[1]
SOURCE = '''#include "a.h"  // a < b
namespace { constexpr unsigned kCap = 251; }
static_assert(kCap < 300);
int f(const char* in, unsigned len) noexcept {
  if (in == nullptr || len >= kCap) return fail("bad");
  std::array<char, 2> out = {};
  clear(out);
  const int file = ::open("/x", O_RDONLY | O_CLOEXEC, 0666);
  log_info("opened %d", file);
  return file == 0 ? -1 : 0;
}
'''
MADE = [
    ("constexpr unsigned kCap = 251;", "constexpr unsigned kCap = 252;"),
    ('if (in == nullptr || len >= kCap) return fail("bad");', 'if (in == nullptr || len > kCap) return fail("bad");'),
    ('if (in == nullptr || len >= kCap) return fail("bad");', 'if ( len >= kCap) return fail("bad");'),
    ("clear(out);", ";"),
    ('const int file = ::open("/x", O_RDONLY | O_CLOEXEC, 0666);', 'const int file = ::open("/x", O_RDONLY , 0666);'),
    ('const int file = ::open("/x", O_RDONLY | O_CLOEXEC, 0666);', 'const int file = ::open("/x", O_RDONLY | O_CLOEXEC, 0600);'),
    ('log_info("opened %d", file);', 'log_debug("opened %d", file);'),
    ("return file == 0 ? -1 : 0;", "return !(file == 0) ? -1 : 0;"),
]
NOT_MADE = ["#include", "static_assert", "std::array"]


def mutate(folder, *options):
    return subprocess.run([folder / "tools/mutate", *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


with tempfile.TemporaryDirectory() as work:
    tree = pathlib.Path(work)
    for name in ("src", "tests"):
        (tree / name).mkdir()
    shutil.copytree(PROJECT / "tools", tree / "tools")
    (tree / "src/a.cc").write_text(SOURCE)

    listed = mutate(tree, "--list")
    missing = [f"- {before}\n+ {after}\n" for before, after in MADE if f"- {before}\n+ {after}\n" not in listed.stdout]
    extra = [text for text in NOT_MADE if f"- {text}" in listed.stdout]
    assert listed.returncode == 0 and not missing and not extra, f"{listed.stdout}\nmissing: {missing}\nextra: {extra}"

    for name, where in (("equivalent", "src/a.cc: no reason"), ("equivalent", "src/a.cc (2): no reason"),
                        ("critical", "src/a.cc: no name")):
        fits = name == "equivalent" and "(2)" not in where
        for before, expected in (("clear(out);", 0 if fits or name == "critical" else 1), ("clear(in);", 1)):
            entries = tree / f"tests/{name}_mutations.txt"
            entries.write_text(f"# A comment.\n\n{where}\n- {before}\n+ ;\n")
            done = mutate(tree, "--list")
            entries.unlink()
            assert done.returncode == expected, f"{name}, {where}, {before}:\n{done.stdout}"

done = mutate(PROJECT, "--list")
sys.exit(done.stdout if done.returncode else 0)
