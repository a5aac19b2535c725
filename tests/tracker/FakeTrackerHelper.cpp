// A stand-in for the tracker helper, driven by the file given after --config. Each line of that
// file is "<command>.<directive> [argument]", where <command> is "run" or "status"; only the
// lines of the command being run apply, in order. Directives:
//   read-key              read the first line of standard input
//   record DIR            write DIR/argv (NUL-terminated arguments), DIR/key (the line read),
//                         DIR/sigpipe ("default" or "ignored") and, last, DIR/pid
//   stdout TEXT           print TEXT and a line feed; "stderr TEXT" likewise
//   stdout-file FILE      copy FILE to standard output
//   close-stdin           close standard input
//   wait-stdin-eof        read standard input until it ends
//   flood STREAM [BYTES]  write BYTES (or, without a count, endless) "x" to stdout or stderr
//   ignore-term           ignore SIGTERM from here on
//   sleep SECONDS         sleep
//   hang                  wait for a signal forever
//   exit N                exit with status N (the end of the script exits with 0)
// Plain C++ without Qt so that it starts as fast as a real helper would.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void writeAll(int fd, const std::string& text) {
    ssize_t written = 0;
    for (size_t done = 0; done < text.size(); done += static_cast<size_t>(written)) {
        if ((written = write(fd, text.data() + done, text.size() - done)) <= 0) {
            return;
        }
    }
}

// Whole files only: the test reads a file as soon as it exists.
void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path + ".tmp", std::ios::binary) << content;
    std::rename((path + ".tmp").c_str(), path.c_str());
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const bool run = args.size() == 6 && args[0] == "--config" && args[2] == "run" &&
                     args[3] == "--api-key-stdin" && args[4] == "--device-name";
    const bool status =
        args.size() == 4 && args[0] == "--config" && args[2] == "status" && args[3] == "--json";
    if (!run && !status) {
        writeAll(2, "usage: --config PATH run|status ...; see the helper's source\n");
        return 64;
    }
    const std::string prefix = run ? "run." : "status.";

    std::ifstream script(args[1]);
    std::string key;
    std::string line;
    while (std::getline(script, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        const size_t blank = line.find(' ');
        const std::string directive = line.substr(prefix.size(), blank - prefix.size());
        const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);

        if (directive == "read-key") {
            for (char c = 0; read(0, &c, 1) == 1 && c != '\n';) {
                key.push_back(c);
            }
        } else if (directive == "record") {
            std::string joined;
            for (const std::string& arg : args) {
                joined += arg + '\0';
            }
            writeFile(argument + "/argv", joined);
            writeFile(argument + "/key", key);
            struct sigaction current {};
            sigaction(SIGPIPE, nullptr, &current);
            writeFile(argument + "/sigpipe", current.sa_handler == SIG_IGN ? "ignored" : "default");
            writeFile(argument + "/pid", std::to_string(getpid()));
        } else if (directive == "stdout" || directive == "stderr") {
            writeAll(directive == "stdout" ? 1 : 2, argument + "\n");
        } else if (directive == "stdout-file") {
            std::ifstream file(argument, std::ios::binary);
            writeAll(1, std::string(std::istreambuf_iterator<char>(file), {}));
        } else if (directive == "flood") {
            const size_t count = argument.find(' ');
            const int fd = argument.substr(0, count) == "stdout" ? 1 : 2;
            // Without a count, more than any reader takes: it ends when the reader goes.
            size_t left =
                count == std::string::npos ? SIZE_MAX : std::stoul(argument.substr(count));
            const std::string chunk(65536, 'x');
            for (ssize_t written = 0; left > 0 && written >= 0; left -= size_t(written)) {
                written = write(fd, chunk.data(), std::min(left, chunk.size()));
            }
        } else if (directive == "ignore-term") {
            std::signal(SIGTERM, SIG_IGN);
        } else if (directive == "close-stdin") {
            close(0);
        } else if (directive == "wait-stdin-eof") {
            for (char buffer[256]; read(0, buffer, sizeof buffer) > 0;) {
            }
        } else if (directive == "sleep") {
            std::this_thread::sleep_for(std::chrono::duration<double>(std::stod(argument)));
        } else if (directive == "hang") {
            for (;;) {
                pause();
            }
        } else if (directive == "exit") {
            return std::stoi(argument);
        } else {
            writeAll(2, "unknown directive: " + directive + "\n");
            return 65;
        }
    }
    return 0;
}
