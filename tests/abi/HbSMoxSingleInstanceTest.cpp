// An application built against the public headers and libmox.so alone must
// share the module's one facade: the singleton machinery of HbSMox lives in
// the library and is exported from it, not compiled again into the program.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>

#include "HbSMox.h"

namespace {

// The module's instance pointer of HbSingleton<HbSMox>, looked up by name.
std::atomic<HbSMox*>* exportedInstancePointer() {
    void* library = dlopen("libmox.so.0", RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) {
        return nullptr;
    }
    void* symbol = dlsym(library, "_ZN11HbSingletonI6HbSMoxE10pInstance_E");
    dlclose(library);
    return static_cast<std::atomic<HbSMox*>*>(symbol);
}

TEST(HbSMoxSingleInstanceTest, InstancePointer_IsExportedByTheModule) {
    ASSERT_NE(exportedInstancePointer(), nullptr);
}

TEST(HbSMoxSingleInstanceTest, GetInstanceInTheApplication_IsTheModulesInstance) {
    std::atomic<HbSMox*>* inModule = exportedInstancePointer();
    ASSERT_NE(inModule, nullptr);
    EXPECT_EQ(inModule->load(), nullptr);
    HbSMox* fromApplication = HbSMox::GetInstance();
    ASSERT_NE(fromApplication, nullptr);
    EXPECT_EQ(inModule->load(), fromApplication);
    EXPECT_EQ(HbSMox::GetInstance(), fromApplication);
}

TEST(HbSMoxSingleInstanceTest, TheFacadeWorksAcrossTheBoundary) {
    HbSMox* mox = HbSMox::GetInstance();
    EXPECT_EQ(mox->getSearchStatus(), 100);
    std::list<HbSMoxDef::AlbumInfo> albums;
    EXPECT_FALSE(mox->getSearchResult("000096", &albums));
}

}  // namespace
