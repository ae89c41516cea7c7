// vimbra-protocol: tells the protocol as the headers have it, for docs/protocol.md and for packet
// analysers.
#include <cstdio>
#include <exception>
#include <iostream>
#include <string_view>

#include "writers.hpp"

int main(int argc, char** argv) {
    try {
        const std::string_view what = argc == 2 ? argv[1] : "";
        if (what == "--markdown") {
            protocol::WriteMarkdown(std::cout);
        } else if (what == "--lua") {
            protocol::WriteDissector(std::cout);
        } else if (what == "--json") {
            protocol::WriteJson(std::cout);
        } else {
            std::cerr << "usage: vimbra-protocol --markdown | --lua | --json\n";
            return 2;
        }
        std::cout.flush();
        return std::cout ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vimbra-protocol: %s\n", error.what());
        return 1;
    }
}
