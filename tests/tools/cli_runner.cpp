// Runs command-line test cases written as data against the vrncal tool.
//
//   === name                 starts a case with a fresh scratch folder @TMP@
//   file PATH <<END          writes a file (lines up to END) before the next run
//   stdin <<END              standard input of the next run
//   run ARGS...              runs the tool (quotes '...' and "..." group words)
//   status N                 exit status of the last run
//   stdout <<END             its exact standard output (also: stderr <<END)
//   stdout-has TEXT          a substring of its standard output (also: stderr-has)
//   stderr TEXT              its exact standard error, one line
//   same-file A B            two files are byte for byte equal
//   no-file PATH             the file does not exist (nothing half written)
//   png PATH W H             a valid PNG of that size
//   truncate PATH BYTES      cuts a file short (a damaged data file)
//
// @EXAMPLES@, @DATA@ and @TMP@ are replaced in every line.  Lines starting
// with '#' outside a block are comments.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::vector<std::string> words(const std::string& s) {
    std::vector<std::string> out;
    std::string cur;
    bool in_word = false;
    char quote = 0;
    for (char c : s) {
        if (quote) {
            if (c == quote) quote = 0;
            else cur += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            in_word = true;
        } else if (c == ' ' || c == '\t') {
            if (in_word) out.push_back(cur), cur.clear(), in_word = false;
        } else {
            cur += c;
            in_word = true;
        }
    }
    if (in_word) out.push_back(cur);
    return out;
}

struct Result {
    int status = -1;
    std::string out, err;
};

Result run(const std::string& exe, const std::vector<std::string>& args, const std::string& input,
           const fs::path& tmp) {
    const fs::path in = tmp / ".stdin", out = tmp / ".stdout", err = tmp / ".stderr";
    std::ofstream(in, std::ios::binary) << input;
    const pid_t pid = fork();
    if (pid == 0) {
        const int fi = open(in.c_str(), O_RDONLY), fo = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644),
                  fe = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fi, 0), dup2(fo, 1), dup2(fe, 2);
        std::vector<char*> argv{const_cast<char*>(exe.c_str())};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    Result r;
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

bool png_size(const fs::path& p, unsigned& w, unsigned& h) {
    const std::string b = slurp(p);
    if (b.size() < 33 || b.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || b.compare(12, 4, "IHDR") != 0) return false;
    auto be = [&](std::size_t o) {
        return (unsigned(uint8_t(b[o])) << 24) | (unsigned(uint8_t(b[o + 1])) << 16) |
               (unsigned(uint8_t(b[o + 2])) << 8) | unsigned(uint8_t(b[o + 3]));
    };
    w = be(16);
    h = be(20);
    return b.compare(b.size() - 8, 4, "IEND") == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: cli_runner VRNCAL CASES EXAMPLES DATA\n";
        return 2;
    }
    const std::string exe = argv[1];
    std::ifstream cases(argv[2]);
    if (!cases) {
        std::cerr << "cannot open " << argv[2] << "\n";
        return 2;
    }
    const fs::path scratch = fs::temp_directory_path() / ("vrncal-cli-" + std::to_string(getpid()));
    int passed = 0, failed = 0;
    std::string name, input, line;
    fs::path tmp;
    Result last;
    std::vector<std::string> failures;
    int line_no = 0;
    auto subst = [&](std::string s) {
        for (const auto& [k, v] : {std::pair<std::string, std::string>{"@EXAMPLES@", argv[3]},
                                   {"@DATA@", argv[4]}, {"@TMP@", tmp.string()}})
            for (std::size_t at; (at = s.find(k)) != std::string::npos;) s.replace(at, k.size(), v);
        return s;
    };
    auto block = [&](const std::string& rest) {
        const std::string end = rest.substr(rest.find("<<") + 2);
        std::string text, l;
        while (std::getline(cases, l) && l != end) text += subst(l) + "\n", ++line_no;
        ++line_no;
        return text;
    };
    auto finish = [&] {
        if (name.empty()) return;
        if (failures.empty()) {
            ++passed;
            std::cout << "ok    " << name << "\n";
        } else {
            ++failed;
            std::cout << "FAIL  " << name << "\n";
            for (const auto& f : failures) std::cout << "      " << f << "\n";
        }
        failures.clear();
    };
    while (std::getline(cases, line)) {
        ++line_no;
        if (line.empty() || line[0] == '#') continue;
        const std::string where = std::string(argv[2]) + ":" + std::to_string(line_no) + ": ";
        const auto sp = line.find(' ');
        const std::string op = line.substr(0, sp);
        std::string rest = sp == std::string::npos ? "" : line.substr(line.find_first_not_of(' ', sp));
        if (op == "===") {
            finish();
            name = rest;
            tmp = scratch / std::to_string(passed + failed);
            fs::remove_all(tmp);
            fs::create_directories(tmp);
            input.clear();
            continue;
        }
        const bool heredoc = rest.find("<<") != std::string::npos;
        if (op == "file") {
            const std::string path = subst(rest.substr(0, rest.find(" <<")));
            std::ofstream(path, std::ios::binary) << block(rest);
        } else if (op == "stdin") {
            input = block(rest);
        } else if (op == "run") {
            last = run(exe, words(subst(rest)), input, tmp);
            input.clear();
        } else if (op == "status") {
            if (last.status != std::stoi(rest))
                failures.push_back(where + "status " + std::to_string(last.status) + ", expected " + rest +
                                   (last.err.empty() ? "" : "; stderr: " + last.err));
        } else if (op == "stdout" || op == "stderr") {
            const std::string want = heredoc ? block(rest) : subst(rest) + "\n";
            const std::string& got = op == "stdout" ? last.out : last.err;
            if (got != want) failures.push_back(where + op + " differs:\n--- got\n" + got + "--- expected\n" + want);
        } else if (op == "stdout-has" || op == "stderr-has") {
            const std::string want = subst(rest);
            const std::string& got = op == "stdout-has" ? last.out : last.err;
            if (got.find(want) == std::string::npos)
                failures.push_back(where + op + " '" + want + "' not in:\n" + got);
        } else if (op == "same-file") {
            const auto w = words(subst(rest));
            if (w.size() != 2 || !fs::exists(w[0]) || slurp(w[0]) != slurp(w[1]))
                failures.push_back(where + "files differ: " + subst(rest));
        } else if (op == "no-file") {
            if (fs::exists(subst(rest))) failures.push_back(where + "file exists: " + subst(rest));
        } else if (op == "truncate") {
            const auto w = words(subst(rest));
            std::error_code ec;
            if (w.size() == 2) fs::resize_file(w[0], std::stoull(w[1]), ec);
            if (w.size() != 2 || ec) failures.push_back(where + "cannot truncate " + subst(rest));
        } else if (op == "png") {
            const auto w = words(subst(rest));
            unsigned pw = 0, ph = 0;
            if (w.size() != 3 || !png_size(w[0], pw, ph) || pw != std::stoul(w[1]) || ph != std::stoul(w[2]))
                failures.push_back(where + "not a " + (w.size() > 2 ? w[1] + "x" + w[2] : "") + " PNG: " + w[0] +
                                   " (" + std::to_string(pw) + "x" + std::to_string(ph) + ")");
        } else {
            failures.push_back(where + "unknown directive '" + op + "'");
        }
    }
    finish();
    fs::remove_all(scratch);
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 && passed > 0 ? 0 : 1;
}
