#include "support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

void ChangeEnvironment(const std::vector<std::string>& environment)
{
    for (const std::string& entry : environment) {
        const size_t equals = entry.find('=');
        if (equals == std::string::npos)
            unsetenv(entry.c_str());
        else
            setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
}

std::string LinkOf(const std::filesystem::path& path)
{
    std::error_code isGone;
    return std::filesystem::read_symlink(path, isGone);
}

}  // namespace

Program::TemporaryFile Program::MakeFile(const std::string& content)
{
    TemporaryFile file(tmpfile(), fclose);
    fwrite(content.data(), 1, content.size(), file.get());
    rewind(file.get());
    return file;
}

/// Leaves the position alone, which the program shares.
std::string Program::ContentOf(FILE* file)
{
    std::string content;
    char piece[4096];
    for (ssize_t count;
         (count = pread(fileno(file), piece, sizeof piece, static_cast<off_t>(content.size()))) > 0;)
        content.append(piece, static_cast<size_t>(count));
    return content;
}

Program::Program(const std::vector<std::string>& command, const std::string& input,
                 const std::vector<std::string>& environment)
    : m_command(command.front()), m_in(MakeFile(input)), m_out(MakeFile()), m_err(MakeFile()), m_child(fork())
{
    if (m_child != 0) return;
    dup2(fileno(m_in.get()), STDIN_FILENO);
    dup2(fileno(m_out.get()), STDOUT_FILENO);
    dup2(fileno(m_err.get()), STDERR_FILENO);
    ChangeEnvironment(environment);
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

Program::~Program()
{
    if (m_child == -1) return;
    Signal(SIGKILL);
    Wait();
}

void Program::WaitForOutput(const std::string& text) const
{
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + std::chrono::seconds(30);
    while (Out().find(text) == std::string::npos && Err().find(text) == std::string::npos) {
        if (steady_clock::now() > end) FAIL() << "no " << text << " in\n" << Out() << Err();
        usleep(1000);
    }
}

void Program::Signal(int signal) const
{
    if (m_child <= 0) return;  // -1 would be every process
    kill(m_child, signal);
    siginfo_t info;
    if (signal == SIGSTOP) waitid(P_PID, static_cast<id_t>(m_child), &info, WSTOPPED | WEXITED | WNOWAIT);
}

std::vector<std::string> Program::Inherited() const
{
    const std::string process = "/proc/" + std::to_string(m_child);
    std::set<std::string> known;  // it has inherited these itself
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        known.insert(LinkOf(entry.path()));
    std::vector<std::string> inherited;
    for (const auto& entry : std::filesystem::directory_iterator(process + "/fdinfo")) {
        std::ifstream info(entry.path());
        std::string word, flags;
        while (info >> word && word != "flags:") continue;
        info >> flags;
        const std::string what = LinkOf(process + "/fd/" + entry.path().filename().string());
        // The shell that starts an emulator leaves its script open.
        if ((strtoul(flags.c_str(), nullptr, 8) & O_CLOEXEC) == 0 && !known.contains(what) &&
            what != m_command)
            inherited.push_back(what);
    }
    return inherited;
}

ProgramResult Program::Wait()
{
    int status = 0;
    waitpid(m_child, &status, 0);
    m_child = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), Out(), Err()};
}

ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input,
                         const std::vector<std::string>& environment)
{
    return Program(command, input, environment).Wait();
}

int NumberAfter(const std::string& label, const std::string& output)
{
    const size_t place = output.find(label);
    EXPECT_NE(place, std::string::npos) << label << " in " << output;
    return place == std::string::npos ? 0 : atoi(output.c_str() + place + label.size());
}
