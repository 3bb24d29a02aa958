// Runs command-line test cases written as data against the vrncal tool.
//
//   === name                 starts a case with a fresh scratch folder @TMP@
//   file PATH <<END          writes a file (lines up to END) before the next run
//   copy FROM TO             copies a file
//   replace PATH OLD NEW     replaces the first OLD in a file by NEW (both may
//                            hold \t, \n, \r and \xHH)
//   fifo PATH [unread]       makes a FIFO; the runner reads what is written to
//                            it, unless told not to
//   symlink TARGET LINK      makes a symbolic link
//   chmod MODE PATH          sets the permission bits (octal)
//   stdin <<END              standard input of the next run
//   stdin-file PATH          the next run reads standard input from PATH
//   stdout-file PATH         the next run writes standard output to PATH
//                            (a device such as /dev/full, or a file)
//   limit-fsize BYTES        the next run may not write a file beyond BYTES
//                            (SIGXFSZ ignored, so the write fails instead)
//   kill SIGNAL MS           the next run gets SIGNAL after MS milliseconds,
//                            its standard input held open until then
//   run ARGS...              runs the tool (quotes '...' and "..." group words)
//   status N                 exit status of the last run (128 + N: signal N)
//   stdout <<END             its exact standard output (also: stderr <<END)
//   stdout-has TEXT          a substring of its standard output (also: stderr-has)
//   stderr TEXT              its exact standard error, one line
//   changed [PATH...]        the last run created, changed or removed exactly
//                            these files of @TMP@ and nothing else there
//   fifo-got PATH <<END      what the runs so far wrote into the FIFO
//   mode PATH MODE           the permission bits of a file (octal)
//   type PATH TYPE           file, symlink, fifo or missing (not following links)
//   same-file A B            two files are byte for byte equal
//   no-file PATH             the file does not exist (nothing half written)
//   png PATH W H             a valid PNG of that size
//   truncate PATH BYTES      cuts a file short (a damaged data file)
//
// @EXAMPLES@, @DATA@ and @TMP@ are replaced in every line.  Lines starting
// with '#' outside a block are comments.  A run that takes more than a minute
// is killed and fails its case.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
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

// What the next run gets besides its arguments.
struct Setup {
    std::string input;
    std::string stdin_file, stdout_file;
    long long fsize = -1;
    int kill_signal = 0, kill_ms = 0;
};

struct Result {
    int status = -1;
    std::string out, err;
};

// The FIFOs of a case: the runner holds each open for reading and writing,
// so that the tool can open it without waiting, and collects what arrives.
struct Fifo {
    int fd;
    std::string got;
};

void drain(std::map<std::string, Fifo>& fifos) {
    char buf[65536];
    for (auto& [path, f] : fifos)
        for (ssize_t n; (n = read(f.fd, buf, sizeof buf)) > 0;) f.got.append(buf, static_cast<std::size_t>(n));
}

int signal_number(const std::string& name) {
    for (const auto& [n, s] : {std::pair{"INT", SIGINT}, {"TERM", SIGTERM}, {"HUP", SIGHUP}, {"PIPE", SIGPIPE}})
        if (name == n || name == std::string("SIG") + n) return s;
    return std::atoi(name.c_str());
}

Result run(const std::string& exe, const std::vector<std::string>& args, const Setup& s, const fs::path& io,
           std::map<std::string, Fifo>& fifos) {
    const fs::path in = io / "stdin", out = io / "stdout", err = io / "stderr";
    std::ofstream(in, std::ios::binary) << s.input;
    int held[2] = {-1, -1};  // standard input kept open until the signal
    if (s.kill_signal != 0 && pipe(held) != 0) return Result{};
    const pid_t pid = fork();
    if (pid == 0) {
        const int fi = held[0] >= 0 ? held[0] : open((s.stdin_file.empty() ? in.c_str() : s.stdin_file.c_str()), O_RDONLY);
        const int fo = s.stdout_file.empty() ? open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)
                                             : open(s.stdout_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int fe = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fi, 0), dup2(fo, 1), dup2(fe, 2);
        if (held[1] >= 0) close(held[1]);
        for (auto& [path, f] : fifos) close(f.fd);
        if (s.fsize >= 0) {
            const rlimit lim{static_cast<rlim_t>(s.fsize), static_cast<rlim_t>(s.fsize)};
            setrlimit(RLIMIT_FSIZE, &lim);
            std::signal(SIGXFSZ, SIG_IGN);  // stays ignored across exec
        }
        std::vector<char*> argv{const_cast<char*>(exe.c_str())};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    if (held[0] >= 0) {
        close(held[0]);
        if (write(held[1], s.input.data(), s.input.size()) < 0) std::perror("stdin");
    }
    const auto start = std::chrono::steady_clock::now();
    int st = 0;
    bool timed_out = false;
    while (waitpid(pid, &st, WNOHANG) == 0) {
        drain(fifos);
        const auto ms =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
        if (s.kill_signal != 0 && ms >= s.kill_ms && held[1] >= 0) {
            kill(pid, s.kill_signal);
            close(held[1]);
            held[1] = -1;
        }
        if (ms > 60000 && !timed_out) kill(pid, SIGKILL), timed_out = true;
        poll(nullptr, 0, 2);
    }
    if (held[1] >= 0) close(held[1]);
    drain(fifos);
    Result r;
    r.status = timed_out ? -2 : WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

// Everything under the folder, by relative path: its type, permission bits
// and content (or link target), to tell what a run touched.
std::map<std::string, std::string> snapshot(const fs::path& dir) {
    std::map<std::string, std::string> m;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); it != fs::recursive_directory_iterator(); ++it) {
        struct stat st;
        if (lstat(it->path().c_str(), &st) != 0) continue;
        std::string sig = std::to_string(st.st_mode) + ":";
        // Large files by size and time, to keep the check fast.
        if (S_ISREG(st.st_mode))
            sig += st.st_size > (1 << 20) ? std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_nsec) +
                                                ":" + std::to_string(st.st_mtim.tv_sec)
                                          : slurp(it->path());
        if (S_ISLNK(st.st_mode)) sig += fs::read_symlink(it->path()).string();
        m[it->path().lexically_relative(dir).string()] = sig;
    }
    return m;
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

// "\t", "\n", "\r" and "\xHH" in a case's text.
std::string unescape(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
        } else if (s[i + 1] == 't' || s[i + 1] == 'n' || s[i + 1] == 'r') {
            ++i;
            out += s[i] == 't' ? '\t' : s[i] == 'n' ? '\n' : '\r';
        } else if (s[i + 1] == 'x' && i + 3 < s.size()) {
            out += static_cast<char>(std::stoi(s.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else {
            out += s[++i];
        }
    }
    return out;
}

std::string file_type(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return "missing";
    return S_ISLNK(st.st_mode) ? "symlink" : S_ISFIFO(st.st_mode) ? "fifo" : S_ISREG(st.st_mode) ? "file" : "other";
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
    const fs::path io = scratch / "io";
    fs::create_directories(io);
    int passed = 0, failed = 0;
    std::string name, line;
    fs::path tmp;
    Setup setup;
    Result last;
    std::map<std::string, std::string> before, after;
    std::map<std::string, Fifo> fifos;
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
    auto close_fifos = [&] {
        for (auto& [path, f] : fifos) close(f.fd);
        fifos.clear();
    };
    auto finish = [&] {
        close_fifos();
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
            setup = Setup{};
            continue;
        }
        const bool heredoc = rest.find("<<") != std::string::npos;
        const auto w = words(subst(rest));
        if (op == "file") {
            const std::string path = subst(rest.substr(0, rest.find(" <<")));
            std::ofstream(path, std::ios::binary) << block(rest);
        } else if (op == "copy" && w.size() == 2) {
            std::error_code ec;
            if (!fs::copy_file(w[0], w[1], fs::copy_options::overwrite_existing, ec))
                failures.push_back(where + "cannot copy " + w[0]);
        } else if (op == "replace" && w.size() == 3) {
            std::string text = slurp(w[0]);
            const std::string from = unescape(w[1]);
            const auto at = text.find(from);
            if (at == std::string::npos)
                failures.push_back(where + "'" + w[1] + "' not in " + w[0]);
            else
                std::ofstream(w[0], std::ios::binary) << text.replace(at, from.size(), unescape(w[2]));
        } else if (op == "fifo" && (w.size() == 1 || (w.size() == 2 && w[1] == "unread"))) {
            if (mkfifo(w[0].c_str(), 0644) != 0) failures.push_back(where + "cannot make the FIFO " + w[0]);
            else if (w.size() == 1) fifos[w[0]] = Fifo{open(w[0].c_str(), O_RDWR | O_NONBLOCK), ""};
        } else if (op == "symlink" && w.size() == 2) {
            if (symlink(w[0].c_str(), w[1].c_str()) != 0) failures.push_back(where + "cannot make the link " + w[1]);
        } else if (op == "chmod" && w.size() == 2) {
            if (chmod(w[1].c_str(), static_cast<mode_t>(std::stoi(w[0], nullptr, 8))) != 0)
                failures.push_back(where + "cannot chmod " + w[1]);
        } else if (op == "stdin") {
            setup.input = block(rest);
        } else if (op == "stdin-file") {
            setup.stdin_file = subst(rest);
        } else if (op == "stdout-file") {
            setup.stdout_file = subst(rest);
        } else if (op == "limit-fsize") {
            setup.fsize = std::stoll(rest);
        } else if (op == "kill" && w.size() == 2) {
            setup.kill_signal = signal_number(w[0]);
            setup.kill_ms = std::stoi(w[1]);
        } else if (op == "run") {
            before = snapshot(tmp);
            last = run(exe, w, setup, io, fifos);
            after = snapshot(tmp);
            setup = Setup{};
        } else if (op == "status") {
            if (last.status != std::stoi(rest))
                failures.push_back(where + (last.status == -2 ? std::string("timed out") : "status " + std::to_string(last.status)) +
                                   ", expected " + rest + (last.err.empty() ? "" : "; stderr: " + last.err));
        } else if (op == "stdout" || op == "stderr") {
            const std::string want = heredoc ? block(rest) : subst(rest) + "\n";
            const std::string& got = op == "stdout" ? last.out : last.err;
            if (got != want) failures.push_back(where + op + " differs:\n--- got\n" + got + "--- expected\n" + want);
        } else if (op == "stdout-has" || op == "stderr-has") {
            const std::string want = subst(rest);
            const std::string& got = op == "stdout-has" ? last.out : last.err;
            if (got.find(want) == std::string::npos) failures.push_back(where + op + " '" + want + "' not in:\n" + got);
        } else if (op == "changed") {
            std::map<std::string, bool> want;
            for (const auto& p : w) want[fs::path(p).lexically_relative(tmp).string()] = true;
            std::string wrong;
            for (const auto* m : {&before, &after})
                for (const auto& [path, sig] : *m) {
                    const auto other = (m == &before ? after : before).find(path);
                    const bool differs = other == (m == &before ? after : before).end() || other->second != sig;
                    if (differs != (want.count(path) > 0) && wrong.find(" " + path + " ") == std::string::npos)
                        wrong += " " + path + " ";
                }
            for (const auto& [path, yes] : want)
                if (!before.count(path) && !after.count(path)) wrong += " " + path + " ";
            if (!wrong.empty()) failures.push_back(where + "changed files differ from the list:" + wrong);
        } else if (op == "fifo-got" && !w.empty()) {
            const std::string want = block(rest);
            const auto it = fifos.find(w[0]);
            const std::string got = it == fifos.end() ? "(no such FIFO)\n" : it->second.got;
            if (got != want) failures.push_back(where + "FIFO got:\n" + got + "--- expected\n" + want);
        } else if (op == "mode" && w.size() == 2) {
            struct stat st;
            if (stat(w[0].c_str(), &st) != 0 || (st.st_mode & 07777) != static_cast<mode_t>(std::stoi(w[1], nullptr, 8)))
                failures.push_back(where + "mode of " + w[0] + " is not " + w[1]);
        } else if (op == "type" && w.size() == 2) {
            if (file_type(w[0]) != w[1]) failures.push_back(where + w[0] + " is " + file_type(w[0]) + ", not " + w[1]);
        } else if (op == "same-file") {
            if (w.size() != 2 || !fs::exists(w[0]) || slurp(w[0]) != slurp(w[1]))
                failures.push_back(where + "files differ: " + subst(rest));
        } else if (op == "no-file") {
            if (fs::exists(subst(rest))) failures.push_back(where + "file exists: " + subst(rest));
        } else if (op == "truncate") {
            std::error_code ec;
            if (w.size() == 2) fs::resize_file(w[0], std::stoull(w[1]), ec);
            if (w.size() != 2 || ec) failures.push_back(where + "cannot truncate " + subst(rest));
        } else if (op == "png") {
            unsigned pw = 0, ph = 0;
            if (w.size() != 3 || !png_size(w[0], pw, ph) || pw != std::stoul(w[1]) || ph != std::stoul(w[2]))
                failures.push_back(where + "not a " + (w.size() > 2 ? w[1] + "x" + w[2] : "") + " PNG: " + w[0] +
                                   " (" + std::to_string(pw) + "x" + std::to_string(ph) + ")");
        } else {
            failures.push_back(where + "unknown or malformed directive '" + op + "'");
        }
    }
    finish();
    fs::remove_all(scratch);
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 && passed > 0 ? 0 : 1;
}
