#include "private/MoxResultFile.h"

#ifndef MOX_RESULT_DIR
#define MOX_RESULT_DIR "/temp/Infotainment/HbSDK/MOX/"
#endif

const std::string MoxResultFile::DIRECTORY = MOX_RESULT_DIR;
const std::string MoxResultFile::FILE_NAME = "dbupdateresponse.dap3";
const std::string MoxResultFile::FULL_PATH = MoxResultFile::DIRECTORY + MoxResultFile::FILE_NAME;
