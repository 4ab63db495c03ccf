// Every test process keeps the module's result directory in the build tree,
// in a folder of its own:
//   <build>/testtmp/result-<pid>/temp/Infotainment/HbSDK/MOX/
// so that tests running at the same time never share it, and a test may
// remove or replace the directory and its parents. Set before any test runs;
// removed when the process ends. Tests of the default choice clear it.
#include <sys/types.h>
#include <unistd.h>

#include <string>

#include "HbFramework/HbFileSysHost.h"
#include "TestDir.h"

namespace {

class TestResultDir {
public:
    TestResultDir()
        : mOwner(::getpid()),
          mRoot(std::string(MOX_TEST_TMP_DIR) + "/result-" + std::to_string(mOwner)) {
        HbFileSysHost::setResultDirectory(mRoot + "/temp/Infotainment/HbSDK/MOX/");
    }
    ~TestResultDir() {
        // A forked child leaves its parent's folder alone.
        if (::getpid() == mOwner) {
            TestDir::removeTree(mRoot);
        }
    }

private:
    const pid_t mOwner;
    const std::string mRoot;
};

const TestResultDir kTestResultDir;

}  // namespace
