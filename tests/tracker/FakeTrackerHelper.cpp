// A stand-in for the tracker helper, driven by the file given after --config. Each line of that
// file is "<command>.<directive> [argument]", where <command> is "run" or "status"; only the
// lines of the command being run apply, in order. Directives:
//   read-key              read the first line of standard input
//   record DIR            write DIR/argv (NUL-terminated arguments), DIR/key (the line read),
//                         DIR/sigpipe ("default" or "ignored") and, last, DIR/pid
//   stdout TEXT           print TEXT and a line feed; "stderr TEXT" likewise
//   stdout-file FILE      copy FILE to standard output
//   stderr-hex HEX        write raw bytes to standard error
//   flood-stdout N        write N bytes to standard output; "flood-stderr N" likewise
//   close-stdin           close standard input
//   wait-stdin-eof        read standard input until it ends
//   sleep SECONDS         sleep
//   hang                  wait for a signal forever
//   exit N                exit with status N (the end of the script exits with 0)
// Plain C++ without Qt so that it starts as fast as a real helper would.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written <= 0) {
            return;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
}

void writeAll(int fd, const std::string& text) {
    writeAll(fd, text.data(), text.size());
}

void writeFile(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".tmp";
    std::ofstream(temporary, std::ios::binary) << content;
    std::rename(temporary.c_str(), path.c_str());
}

void flood(int fd, long long bytes) {
    const std::string chunk(64 * 1024, 'x');
    while (bytes > 0) {
        const size_t size = static_cast<size_t>(std::min<long long>(bytes, 64 * 1024));
        writeAll(fd, chunk.data(), size);
        bytes -= static_cast<long long>(size);
    }
}

std::string readLine(int fd) {
    std::string line;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') {
        line.push_back(c);
    }
    return line;
}

int usage() {
    writeAll(2, "usage: --config PATH run --api-key-stdin --device-name NAME\n"
                "       --config PATH status --json\n");
    return 64;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const bool runCommand = args.size() == 6 && args[0] == "--config" && args[2] == "run" &&
                            args[3] == "--api-key-stdin" && args[4] == "--device-name";
    const bool statusCommand =
        args.size() == 4 && args[0] == "--config" && args[2] == "status" && args[3] == "--json";
    if (!runCommand && !statusCommand) {
        return usage();
    }
    const std::string prefix = runCommand ? "run." : "status.";

    std::ifstream script(args[1]);
    std::string key;
    std::string line;
    while (std::getline(script, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        line.erase(0, prefix.size());
        const size_t blank = line.find(' ');
        const std::string directive = line.substr(0, blank);
        const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);

        if (directive == "read-key") {
            key = readLine(0);
        } else if (directive == "record") {
            std::string joined;
            for (const std::string& arg : args) {
                joined += arg;
                joined.push_back('\0');
            }
            writeFile(argument + "/argv", joined);
            writeFile(argument + "/key", key);
            struct sigaction current {};
            sigaction(SIGPIPE, nullptr, &current);
            writeFile(argument + "/sigpipe", current.sa_handler == SIG_IGN ? "ignored" : "default");
            writeFile(argument + "/pid", std::to_string(getpid()));
        } else if (directive == "stdout") {
            writeAll(1, argument + "\n");
        } else if (directive == "stderr") {
            writeAll(2, argument + "\n");
        } else if (directive == "stdout-file") {
            std::ifstream file(argument, std::ios::binary);
            writeAll(1, std::string(std::istreambuf_iterator<char>(file), {}));
        } else if (directive == "stderr-hex") {
            std::string bytes;
            for (size_t i = 0; i + 1 < argument.size(); i += 2) {
                bytes.push_back(static_cast<char>(std::stoi(argument.substr(i, 2), nullptr, 16)));
            }
            writeAll(2, bytes);
        } else if (directive == "flood-stdout") {
            flood(1, std::stoll(argument));
        } else if (directive == "flood-stderr") {
            flood(2, std::stoll(argument));
        } else if (directive == "close-stdin") {
            close(0);
        } else if (directive == "wait-stdin-eof") {
            char buffer[256];
            while (read(0, buffer, sizeof buffer) > 0) {
            }
        } else if (directive == "sleep") {
            std::this_thread::sleep_for(std::chrono::duration<double>(std::stod(argument)));
        } else if (directive == "hang") {
            for (;;) {
                pause();
            }
        } else if (directive == "exit") {
            return std::atoi(argument.c_str());
        } else {
            writeAll(2, "unknown directive: " + directive + "\n");
            return 65;
        }
    }
    return 0;
}
