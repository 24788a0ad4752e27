#pragma once
#include "tests/check.h"
#include "scanner/udpsocket.h"

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <vector>

// The tools' binaries run from the tests through the shell, under a time
// limit of 60 s. One thread.
struct ToolRun
{
    // Runs `command`; returns its exit code (-1 when it was killed) and its
    // output, standard error included unless `errors` sends it elsewhere.
    static int run(const std::string& command, std::string* out = nullptr,
                   const std::string& errors = " 2>&1")
    {
        std::FILE* p = popen(("timeout -s KILL 60 " + command + errors).c_str(), "r");
        const std::string text = readAll(p);
        const int status = pclose(p);
        if (out)
            *out = text;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static std::string readAll(std::FILE* f)
    {
        std::string text;
        for (int c; (c = std::fgetc(f)) != EOF;)
            text += char(c);
        return text;
    }

    static bool says(const std::string& output, const std::string& part)
    {
        return output.find(part) != std::string::npos;
    }

    // Binds `socket` to a free port of every local address (a port in use,
    // or where a tool's datagrams land); the port as text.
    static std::string bindFreePort(strmsocket::UdpSocket& socket)
    {
        sockaddr_in any{};
        strmsocket::UdpSocket::parse("", 0, any);
        CHECK(socket.open() && socket.bind(any));
        return std::to_string(socket.localPort());
    }

    // A command line and what it must give.
    struct Expect
    {
        const char* name;
        std::string command;
        int code;
        const char* message; // in stdout or stderr
    };
    // Runs every row and checks its exit code and output.
    static void check(const std::vector<Expect>& rows)
    {
        for (const Expect& row : rows) {
            vxtest::row = row.name;
            std::string out;
            CHECK_EQ(run(row.command, &out), row.code);
            if (!CHECK(says(out, row.message)))
                std::fprintf(stderr, "  output: %s\n", out.c_str());
        }
    }
};
