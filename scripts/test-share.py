#!/usr/bin/env python3
"""Share of test code in the repository's code lines.

Counts non-blank, non-comment lines of C, C++, Python and CMake files that
git tracks (.c .cc .cpp .h .hpp .py .cmake and CMakeLists.txt), tests/
against everything else, and prints both counts and the share.  Data files
(case tables, expected outputs) are not code and are not counted.
Exit status 1 when the share is above the limit (default 35 %).
"""
import re
import subprocess
import sys

CODE = re.compile(r'(\.(c|cc|cpp|h|hpp|py|cmake)|(^|/)CMakeLists\.txt)$')


def code_lines(path):
    try:
        text = open(path, encoding='utf-8', errors='replace').read()
    except OSError:
        return 0
    hash_comments = path.endswith(('.py', '.cmake', 'CMakeLists.txt'))
    if not hash_comments:
        text = re.sub(r'/\*.*?\*/', lambda m: '\n' * m.group(0).count('\n'), text, flags=re.S)
    n = 0
    for line in text.splitlines():
        s = line.strip()
        if not s:
            continue
        if hash_comments and s.startswith('#'):
            continue
        if not hash_comments and s.startswith('//'):
            continue
        n += 1
    return n


def main():
    limit = float(sys.argv[1]) if len(sys.argv) > 1 else 35.0
    files = subprocess.run(['git', 'ls-files'], capture_output=True, text=True,
                           check=True).stdout.split('\n')
    tests = rest = 0
    for f in files:
        if not f or not CODE.search(f):
            continue
        if f.startswith('tests/'):
            tests += code_lines(f)
        else:
            rest += code_lines(f)
    share = 100.0 * tests / max(1, tests + rest)
    print(f'tests {tests}  rest {rest}  total {tests + rest}  share {share:.1f} %  (limit {limit:.0f} %)')
    return 0 if share <= limit else 1


if __name__ == '__main__':
    sys.exit(main())
