#include "support/program.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

/// A file without a name that goes when it is closed. Unlike pipes it never blocks a program that nobody
/// reads from.
using TemporaryFile = std::unique_ptr<FILE, int (*)(FILE*)>;

TemporaryFile MakeFile(const std::string& content = "")
{
    TemporaryFile file(tmpfile(), fclose);
    fwrite(content.data(), 1, content.size(), file.get());
    rewind(file.get());
    return file;
}

std::string ContentOf(FILE* file)
{
    std::string content;
    rewind(file);
    for (int c = fgetc(file); c != EOF; c = fgetc(file)) content += static_cast<char>(c);
    return content;
}

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

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input,
                         const std::vector<std::string>& environment)
{
    const TemporaryFile in = MakeFile(input), out = MakeFile(), err = MakeFile();
    const pid_t child = fork();
    if (child == 0) {
        dup2(fileno(in.get()), STDIN_FILENO);
        dup2(fileno(out.get()), STDOUT_FILENO);
        dup2(fileno(err.get()), STDERR_FILENO);
        ChangeEnvironment(environment);
        std::vector<char*> argv;
        for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ContentOf(out.get()),
            ContentOf(err.get())};
}
