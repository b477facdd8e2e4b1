#include "sim/shell.h"

#include "platform/unique_fd.h"
#include "sim/bytes.h"
#include "sim/report.h"
#include "sim/root.h"
#include "sim/scenario.h"
#include "sim/udhcpc.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

static constexpr int status_failed = 1;
static constexpr int status_usage = 2;
static constexpr int status_not_found = 127;

struct shell_line {
    std::string root;
    std::string text;
    std::vector<std::string> words; // up to the first redirection
    std::string output;             // where standard output goes, unrooted; empty: nowhere
};

// A path of a line below the root. Empty if it is none that stays there.
static std::string rooted(const shell_line &line, const std::string &path)
{
    if (!path.starts_with('/') || (path + "/").find("/../") != std::string::npos)
        return {};
    return line.root + path;
}

static std::vector<std::string> split_words(std::string_view text)
{
    std::vector<std::string> words;
    while (true) {
        const size_t start = text.find_first_not_of(' ');
        if (start == std::string_view::npos)
            return words;
        text.remove_prefix(start);
        words.emplace_back(text.substr(0, text.find(' ')));
        text.remove_prefix(words.back().size());
    }
}

static bool is_redirection(const std::string &word)
{
    return word == ">" || word == "&>" || word == "2>" || word == "<";
}

static shell_line read_line(const std::string &root, const std::string &text)
{
    shell_line line = {root, text, split_words(text), {}};
    const auto redirection = std::find_if(line.words.begin(), line.words.end(), is_redirection);
    if (redirection != line.words.end() && *redirection == ">" &&
        redirection + 1 != line.words.end())
        line.output = *(redirection + 1);
    line.words.erase(redirection, line.words.end());
    return line;
}

static std::string option(const shell_line &line, std::string_view name)
{
    for (size_t i = 0; i + 1 < line.words.size(); i++)
        if (line.words[i] == name)
            return line.words[i + 1];
    return {};
}

static bool is_interface(const std::string &name)
{
    return !name.empty() && name.size() < 16 &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                  "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-") == std::string::npos &&
           name.front() != '.';
}

static int play_udhcpc(const shell_line &line)
{
    udhcpc_job job = {line.root, option(line, "-i"), rooted(line, option(line, "-p")),
                      rooted(line, option(line, "-s"))};
    if (!is_interface(job.interface) || job.pid_path.empty())
        return status_failed;
    return udhcpc_start(job);
}

// "kill [-SIGUSR1] `cat FILE`"
static int play_kill(const shell_line &line)
{
    const size_t open = line.text.find("`cat ");
    const size_t close = open == std::string::npos ? open : line.text.find('`', open + 1);
    if (close == std::string::npos)
        return status_failed;
    const std::string path = rooted(line, line.text.substr(open + 5, close - open - 5));
    const long pid = path.empty() ? -1 : file_read_pid(path);
    const bool renew = line.words.size() > 1 && line.words[1] == "-SIGUSR1";
    const bool played = pid > 0 && udhcpc_holds(path);
    if (pid <= 0 || kill(static_cast<pid_t>(pid), renew ? SIGUSR1 : SIGTERM) != 0)
        return status_failed;
    if (played && !renew)
        udhcpc_wait_gone(path);
    return 0;
}

// Runs a script of the root with the words from `first` on.
static int run_script(const shell_line &line, size_t first)
{
    const std::string script = rooted(line, line.words[first]);
    const std::string output = line.output.empty() ? "/dev/null" : rooted(line, line.output);
    if (script.empty() || output.empty())
        return status_failed;
    if (access(script.c_str(), X_OK) != 0)
        return status_not_found;
    const unique_fd sink(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!sink)
        return status_failed;
    std::vector<char *> arguments;
    std::vector<std::string> words(line.words.begin() + static_cast<ptrdiff_t>(first),
                                   line.words.end());
    words.front() = script;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(sink.get(), STDOUT_FILENO);
        execv(script.c_str(), arguments.data());
        _exit(status_not_found);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return status_failed;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static int play_script(const shell_line &line)
{
    return run_script(line, 0);
}

static int play_lua(const shell_line &line)
{
    return line.words.size() > 1 ? run_script(line, 1) : status_failed;
}

// "/sbin/ifconfig INTERFACE up|down"
static int play_ifconfig(const shell_line &line)
{
    if (line.words.size() < 3 || !is_interface(line.words[1]) ||
        (line.words[2] != "up" && line.words[2] != "down"))
        return status_failed;
    const std::string path = line.root + "/var/run/" + line.words[1] + ".state";
    return file_replace(path, line.words[2] + "\n") == 0 ? 0 : status_failed;
}

struct shell_program {
    const char *prefix;
    int (*play)(const shell_line &line);
};

// Every other line, `killall -HUP lineherd` for one, is recorded and succeeds.
static constexpr std::array shell_programs = {
    shell_program{"/sbin/udhcpc ", play_udhcpc},     shell_program{"kill ", play_kill},
    shell_program{"/etc/scripts/", play_script},     shell_program{"/bin/lua /", play_lua},
    shell_program{"/sbin/ifconfig ", play_ifconfig},
};

static int play(const shell_line &line)
{
    for (const shell_program &program : shell_programs)
        if (line.text.starts_with(program.prefix))
            return program.play(line);
    return 0;
}

static int find_rule(const shell_line &line, shell_rule &found)
{
    const std::string path = line.root + "/var/run/shell-status.json";
    std::string text;
    if (file_read(path, text) != 0)
        return errno == ENOENT ? 0 : -1;
    const json_ref array(json_loadb(text.data(), text.size(), 0, nullptr));
    std::vector<shell_rule> rules;
    json_refusal refusal;
    if (shell_rules_parse(array.get(), rules, refusal) != 0) {
        sim_report("%s: %s", path.c_str(), json_refusal_text(refusal).c_str());
        return -1;
    }
    for (const shell_rule &rule : rules) {
        if (line.text.find(rule.match) != std::string::npos) {
            found = rule;
            return 0;
        }
    }
    return 0;
}

static int run(const shell_line &line)
{
    shell_rule rule;
    if (find_rule(line, rule) != 0)
        return status_usage;
    if (rule.delay_ms > 0) {
        struct timespec left = {static_cast<time_t>(rule.delay_ms / 1000),
                                static_cast<long>(rule.delay_ms % 1000) * 1000000};
        while (nanosleep(&left, &left) != 0 && errno == EINTR)
            continue;
    }
    return rule.status != 0 ? static_cast<int>(rule.status) : play(line);
}

static int record(const shell_line &line, int status)
{
    const std::string path = line.root + "/var/log/shell.log";
    const unique_fd log(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    const std::string text = std::to_string(status) + '\t' + bytes_escape(line.text) + '\n';
    if (log && write(log.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
        return 0;
    sim_report("Could not write %s", path.c_str());
    return -1;
}

// What TESSERA_ROOT says, else two directories above the shell.
static int find_root(const char *shell, std::string &root)
{
    const char *given = getenv("TESSERA_ROOT");
    if (given && *given) {
        root = given;
    } else {
        root = shell;
        if (!root.ends_with("/bin/sh"))
            return -1;
        root.resize(root.size() - 7);
    }
    while (root.ends_with('/'))
        root.pop_back();
    struct stat found = {};
    if (!root.starts_with('/') || stat((root + "/var/log").c_str(), &found) != 0)
        return -1;
    return setenv("TESSERA_ROOT", root.c_str(), 1);
}

int shell_main(int argc, char **argv)
{
    std::string root;
    if (find_root(argv[0], root) != 0) {
        sim_report("The shell belongs to no root");
        return status_usage;
    }
    if (argc < 3 || std::string_view(argv[1]) != "-c") {
        sim_report("The shell needs -c and a command line");
        return status_usage;
    }
    const shell_line line = read_line(root, argv[2]);
    const int status = run(line);
    return record(line, status) == 0 ? status : status_usage;
}
