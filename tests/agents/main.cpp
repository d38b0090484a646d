#include "agents/Agents.h"

#include <cstring>
#include <gtest/gtest.h>
#include <iostream>

// With --install, installs every agent and returns: ctest runs that once, as the fixture of
// the tests, so that their time limits leave the download out. An unreachable registry is
// reported and not a failure: the tests then skip with the same reason.
int main(int argc, char** argv) {
    using namespace norrow::test;
    if (argc == 2 && std::strcmp(argv[1], "--install") == 0) {
        int status = 0;
        for (const NpmPackage* package : agents::all) {
            const auto installed = npm::install(*package, NORROW_AGENTS_DIR);
            if (!installed.error) continue;
            std::cout << package->name << "@" << package->version << ": "
                      << npm::describe(*installed.error) << "\n"
                      << installed.output;
            if (*installed.error == npm::InstallError::failed) status = 1;
        }
        return status;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
