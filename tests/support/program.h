/// Runs whole programs as a user would.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct ProgramResult {
    int status = -1;  ///< exit status, or 128 + the signal
    std::string out, err;
};

/// A program that runs beside the test. It is killed at the end, unless Wait was called.
class Program {
  public:
    /// @param environment  "NAME=value" entries that are added; "NAME" alone removes one.
    explicit Program(const std::vector<std::string>& command, const std::string& input = "",
                     const std::vector<std::string>& environment = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// What it wrote so far.
    std::string Out() const { return ContentOf(m_out.get()); }
    std::string Err() const { return ContentOf(m_err.get()); }
    /// Waits until it has written a text on standard output or standard error; fails the test after a while.
    void WaitForOutput(const std::string& text) const;
    /// When one that stops it returns, none of its threads runs any more.
    void Signal(int signal) const;
    ProgramResult Wait();
    /// What the descriptors are that a program which it starts would inherit, besides those that it has inherited
    /// itself.
    std::vector<std::string> Inherited() const;

  private:
    /// A file without a name that goes when it is closed. Unlike a pipe it never blocks a program
    /// whose output is not read.
    using TemporaryFile = std::unique_ptr<FILE, int (*)(FILE*)>;
    static TemporaryFile MakeFile(const std::string& content = "");
    static std::string ContentOf(FILE* file);

    const std::string m_command;
    const TemporaryFile m_in, m_out, m_err;
    pid_t m_child;
};

/// Runs a program to its end.
ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input = "",
                         const std::vector<std::string>& environment = {});

/// The number behind a text in an output: of "TCP port " in "TCP port 1234, UDP port 5", 1234.
int NumberAfter(const std::string& label, const std::string& output);
