// Host only: where this process keeps the module's result directory.
//
// The module names its result directory by the head unit's constant
// "/temp/Infotainment/HbSDK/MOX/": one process, one user, one directory. A
// PC is shared by users, programs and tests, so the host edition maps that
// directory, for every file service the module uses (HbFileSys::IsExist,
// HbFileSys::CreateDirectory and the C stream open of the result file), onto
// a directory of this process's own, chosen in this order:
// 1. setResultDirectory(), called before the first HbSMox::GetInstance();
// 2. the environment variable MOX_RESULT_DIR;
// 3. a private directory (mode 0700) that the process makes on first use,
//    inside $XDG_RUNTIME_DIR/mox/ when XDG_RUNTIME_DIR names a directory of
//    the user's, else in $TMPDIR (or /tmp). HbSingletonFinalizer::finalize()
//    removes it with what it holds.
//
// Never through another user's hands: whenever the module checks, creates or
// opens its result directory, a directory that another user owns or that
// others can write is refused, and so is any of its parents that lies below
// a sticky world-writable directory (/tmp) and is not the user's own or can
// be written by others. A result file that is a symbolic link, has more than
// one hard link or is not a regular file is refused too. Each refusal writes
// one line through the debug output, from the source named by SOURCE, and
// the module then reports it as it reports any directory or open error.
//
//   HbFileSysHost::setResultDirectory("/home/me/mox-answers/");
//   HbSMox::GetInstance()->startLink();
//   ...
//   std::string stored = HbFileSysHost::getResultFilePath();
//
// Every function here can be called from any thread.
#ifndef HB_FRAMEWORK_HBFILESYSHOST_H
#define HB_FRAMEWORK_HBFILESYSHOST_H

#include <string>

class HbFileSysHost {
public:
    // The head unit's result directory, as the module names it.
    static const char* const HEAD_UNIT_RESULT_DIR;
    // The result file's name, never configurable.
    static const char* const RESULT_FILE_NAME;
    // The source name of the debug lines that report a refusal.
    static const char* const SOURCE;

    // Where the directory in force came from.
    enum Origin {
        en_ORIGIN_SETTER,       // setResultDirectory()
        en_ORIGIN_ENVIRONMENT,  // MOX_RESULT_DIR
        en_ORIGIN_PRIVATE,      // made by this process, removed at finalize()
    };

    // An empty text removes the setting. A relative path is taken from the
    // current directory; a trailing slash is added when missing.
    static void setResultDirectory(const std::string& directory);
    // The directory in force, with its trailing slash. The private directory
    // is made on the first call that needs it; "" when it cannot be made
    // (the reason is in the debug output).
    static std::string getResultDirectory();
    static Origin getResultDirectoryOrigin();
    // Puts this process's private directory in force, over the setter and
    // MOX_RESULT_DIR, for a program that must never touch a shared one; it
    // is made when missing and removed at finalize(). "" when it cannot be
    // made.
    static std::string usePrivateResultDirectory();
    // getResultDirectory() followed by RESULT_FILE_NAME ("" as above).
    static std::string getResultFilePath();

    // `path` with the head unit's result directory replaced by this
    // process's; any other path is returned as it is.
    static std::string mapPath(const char* path);
    // True when `path` is the head unit's result directory or lies in it.
    static bool isInResultDirectory(const char* path);

    // True when `directory` (which need not exist yet) may hold a result
    // file: neither it nor any parent below a sticky world-writable directory
    // is another user's or writable by others. Otherwise false, and `why`
    // says so in one line ("result directory /x is owned by another user").
    static bool checkDirectory(const std::string& directory, std::string* why);
};

#endif  // HB_FRAMEWORK_HBFILESYSHOST_H
