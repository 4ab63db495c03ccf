#include "private/MoxResultFile.h"

const std::string MoxResultFile::DIRECTORY = "/temp/Infotainment/HbSDK/MOX/";
const std::string MoxResultFile::FILE_NAME = "dbupdateresponse.dap3";
const std::string MoxResultFile::FULL_PATH = MoxResultFile::DIRECTORY + MoxResultFile::FILE_NAME;
