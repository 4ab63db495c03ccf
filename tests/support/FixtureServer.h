// The local HTTP server that plays an online music service for one test
// (tests/cli/online/fixture_server.py, run with Debian's Python): it
// listens on 127.0.0.1 and answers from the test's routes and the fixtures
// of tests/cli/online. The destructor ends a server still running.
#ifndef MOX_TESTS_FIXTURESERVER_H
#define MOX_TESTS_FIXTURESERVER_H

#include <string>
#include <vector>

#include "ChildProgram.h"
#include "TestDir.h"

class FixtureServer {
public:
    // Starts the server with `routes` (a JSON list, see fixture_server.py),
    // written into `dir`, and waits until it listens.
    FixtureServer(const TestDir& dir, const std::string& routes);

    // "http://127.0.0.1:PORT".
    const std::string& url() const { return mUrl; }
    // Waits until the server has got one more request; its path and query.
    std::string waitForRequest();
    // Ends the server; the path and query of every request it got.
    std::vector<std::string> requests();

    // One route: requests whose path starts with `path` get `answers` (JSON
    // objects separated by commas) one after another.
    static std::string route(const std::string& path, const std::string& answers);
    // The folder of the fixtures.
    static std::string fixtureDir();

private:
    ChildProgram mProgram;
    std::string mUrl;
};

#endif  // MOX_TESTS_FIXTURESERVER_H
