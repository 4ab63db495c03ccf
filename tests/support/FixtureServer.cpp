// The fixture server of one test.
#include "FixtureServer.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>

namespace {

std::string routesFile(const TestDir& dir, const std::string& routes) {
    const std::string path = dir.file("routes.json");
    std::ofstream(path) << routes;
    return path;
}

// `text` as a JSON string.
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

}  // namespace

FixtureServer::FixtureServer(const TestDir& dir, const std::string& routes)
    : mProgram(MOX_PYTHON,
               {fixtureDir() + "/fixture_server.py", routesFile(dir, routes), fixtureDir()}) {
    const std::string marker = "listening on ";
    const std::string line = mProgram.waitForLine(marker);
    EXPECT_FALSE(line.empty()) << mProgram.err();
    mUrl = "http://" + line.substr(marker.size());
}

std::string FixtureServer::waitForRequest() {
    const std::string prefix = "request: ";
    const std::string line = mProgram.waitForLine(prefix);
    return line.empty() ? line : line.substr(prefix.size());
}

std::vector<std::string> FixtureServer::requests() {
    mProgram.signal(SIGTERM);
    mProgram.wait();
    std::vector<std::string> paths;
    const std::string prefix = "request: ";
    size_t at = 0;
    while ((at = mProgram.err().find(prefix, at)) != std::string::npos) {
        const size_t end = mProgram.err().find('\n', at);
        paths.push_back(mProgram.err().substr(at + prefix.size(), end - at - prefix.size()));
        at = end;
    }
    return paths;
}

std::string FixtureServer::route(const std::string& path, const std::string& answers) {
    return "{\"path\": " + quoted(path) + ", \"answers\": [" + answers + "]}";
}

std::string FixtureServer::fixtureDir() {
    return MOX_ONLINE_FIXTURE_DIR;
}
