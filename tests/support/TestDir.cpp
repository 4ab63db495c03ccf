#include "TestDir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

TestDir::TestDir(const std::string& name)
    : mPath(std::string(MOX_TEST_TMP_DIR) + "/" + name + "-" + std::to_string(::getpid())) {
    removeTree(mPath);
    std::filesystem::create_directories(mPath);
}

TestDir::~TestDir() {
    removeTree(mPath);
}

void TestDir::writeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

std::vector<unsigned char> TestDir::readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

void TestDir::removeTree(const std::string& path) {
    std::error_code ignored;
    // Make read-only directories left by a test writable again before removal.
    if (std::filesystem::exists(path, ignored)) {
        for (auto it = std::filesystem::recursive_directory_iterator(path, ignored);
             it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
            ::chmod(it->path().c_str(), 0755);
        }
        ::chmod(path.c_str(), 0755);
    }
    std::filesystem::remove_all(path, ignored);
}
