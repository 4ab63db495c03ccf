// Where the phone's answer is stored: one directory, one file name and the
// full path made of both. The protocol appends the received chunks to this
// file and the database reader opens the same path.
#ifndef MOX_PRIVATE_MOXRESULTFILE_H
#define MOX_PRIVATE_MOXRESULTFILE_H

#include <string>

class MoxResultFile {
public:
    // The directory, with its trailing slash: "/temp/Infotainment/HbSDK/MOX/".
    static const std::string DIRECTORY;
    // "dbupdateresponse.dap3", never configurable.
    static const std::string FILE_NAME;
    // DIRECTORY followed directly by FILE_NAME.
    static const std::string FULL_PATH;
};

#endif  // MOX_PRIVATE_MOXRESULTFILE_H
