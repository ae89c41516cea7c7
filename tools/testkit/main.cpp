// vimbra-fake: the daemon by a script as a program, for tests that are no C programs.
#include <poll.h>
#include <signal.h>
#include <unistd.h>
#include <vimbra/version.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "fake.hpp"

namespace {

using testkit::Json;

Json ReadScript(const std::string& path) {
    if (path.empty()) {
        return Json::object();
    }
    std::ifstream file(path);
    if (!file) {
        throw testkit::BadValue(path + " cannot be read");
    }
    return Json::parse(file, nullptr, true, true);
}

// Notifications come in on standard input, a JSON object a line; its end leaves the daemon running.
void TakeNotifications(testkit::Fake& fake) {
    std::string line;
    while (std::getline(std::cin, line)) {
        try {
            if (!fake.Notify(Json::parse(line))) {
                std::cerr << "vimbra-fake: nobody has taken " << line << '\n';
            }
        } catch (const std::exception& error) {
            std::cerr << "vimbra-fake: " << error.what() << '\n';
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string script;
    bool once = false;
    CLI::App app(
        "A network daemon for tests: answers by a script, prints each request as a JSON line, and "
        "sends the notifications that come in on standard input, a JSON line each.");
    app.set_version_flag("-V,--version", VIMBRA_VERSION_TEXT);
    app.add_option("script", script,
                   "The script, JSON with comments; code 0 for everything without");
    app.add_flag("--check", once, "Only look whether the script is one");
    app.footer(
        "Exit status: 0 ended by a signal, 1 it cannot serve, 2 the command line or the script "
        "is wrong.\nRun it in a /tmp of its own: vimbra-sandbox -- ...");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    // Taken by sigwait() below, also from the threads that come.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    try {
        testkit::Script read(ReadScript(script));
        if (once) {
            return 0;
        }
        static testkit::Fake fake(std::move(read), [](const Json& request) {
            std::printf("%s\n", request.dump().c_str());
            std::fflush(stdout);
        });
        std::thread([] { TakeNotifications(fake); }).detach();
        int signal = 0;
        sigwait(&ends, &signal);
        unlink("/tmp/api_daemon");
        _exit(0);
    } catch (const testkit::BadValue& error) {
        std::cerr << "vimbra-fake: " << error.what() << '\n';
    } catch (const nlohmann::json::exception& error) {
        std::cerr << "vimbra-fake: " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "vimbra-fake: " << error.what() << '\n';
        return 1;
    }
    return 2;
}
