// File-system helpers of the framework.
#ifndef HB_FRAMEWORK_HBFILESYS_H
#define HB_FRAMEWORK_HBFILESYS_H

class HbFileSys {
public:
    // True when `path` names an existing file or directory.
    static bool IsExist(const char* path);
    // Creates the directory `path`. With `recursive`, every missing parent is
    // created too (mode 0755). True when the directory exists afterwards.
    static bool CreateDirectory(const char* path, bool recursive);
};

#endif  // HB_FRAMEWORK_HBFILESYS_H
