#include "StoredDatabaseFixture.h"

#include <cstdio>
#include <cstring>
#include <fstream>

#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"

void StoredDatabaseFixture::writeResultFile(const moxdb::Bytes& bytes) {
    ASSERT_TRUE(HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true));
    removeResultFile();
    std::ofstream out(HbFileSysHost::getResultFilePath(), std::ios::binary | std::ios::trunc);
    ASSERT_TRUE(out.good()) << HbFileSysHost::getResultFilePath();
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    ASSERT_TRUE(out.good());
}

void StoredDatabaseFixture::removeResultFile() {
    std::remove(HbFileSysHost::getResultFilePath().c_str());
}

void StoredDatabaseFixture::SetUp() {
    ASSERT_TRUE(HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true));
    removeResultFile();
    db = MoxDapDatabase::GetInstance();
    db->init();
}

void StoredDatabaseFixture::TearDown() {
    db->init();
    removeResultFile();
}

bool StoredDatabaseFixture::load() {
    if (!db->openSearchResultFile()) {
        return false;
    }
    db->mpDbHeader = new DbHeader();
    std::memset(static_cast<void*>(db->mpDbHeader), 0, sizeof(DbHeader));
    if (!db->getDbHeader() || !db->judgeDapDbVer()) {
        return false;
    }
    db->mpDbToc = new DbToc();
    std::memset(static_cast<void*>(db->mpDbToc), 0, sizeof(DbToc));
    return db->getDbToc();
}

void StoredDatabaseFixture::storeAndLoad(const moxdb::Bytes& bytes) {
    store(bytes);
    ASSERT_TRUE(load());
}

bool StoredDatabaseFixture::isClosed() const {
    return db->mpReadFile == nullptr && db->mpDbHeader == nullptr && db->mpDbToc == nullptr;
}

void StoredDatabaseFixture::expectClosed() const {
    EXPECT_EQ(db->mpReadFile, nullptr);
    EXPECT_EQ(db->mpDbHeader, nullptr);
    EXPECT_EQ(db->mpDbToc, nullptr);
}
