// A fresh, empty scratch directory per test, below the build tree.
#ifndef MOX_TESTS_TESTDIR_H
#define MOX_TESTS_TESTDIR_H

#include <string>
#include <vector>

class TestDir {
public:
    // Creates <build>/testtmp/<name>-<pid>, empty.
    explicit TestDir(const std::string& name);
    ~TestDir();  // removes the directory and everything in it

    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

    static void writeFile(const std::string& path, const std::vector<unsigned char>& bytes);
    static std::vector<unsigned char> readFile(const std::string& path);
    static void removeTree(const std::string& path);

private:
    std::string mPath;
};

#endif  // MOX_TESTS_TESTDIR_H
