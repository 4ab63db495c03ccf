// A test fixture for the module's response-database reader: it stores a
// database as the module's result file, opens it the way a search does and
// tells whether the reader has closed it. Each test starts and ends with the
// reader closed and no result file.
//
//   class MoxDapDatabaseSearchTest : public StoredDatabaseFixture {};
//   TEST_F(MoxDapDatabaseSearchTest, ...) {
//       store(cat);
//       ASSERT_TRUE(load());
//       ...
//       expectClosed();
//   }
#ifndef MOX_TESTS_STOREDDATABASEFIXTURE_H
#define MOX_TESTS_STOREDDATABASEFIXTURE_H

#include <gtest/gtest.h>

#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "private/MoxDapDatabase.h"

class StoredDatabaseFixture : public ::testing::Test {
public:
    // Replaces the result file with a new one holding `bytes` (a truncated
    // and rewritten file would be flushed on close, which slows the cut and
    // damage loops down).
    static void writeResultFile(const moxdb::Bytes& bytes);
    static void removeResultFile();

protected:
    void SetUp() override;
    void TearDown() override;

    void store(const moxdb::CatalogueBuilder& cat) { store(cat.build()); }
    void store(const moxdb::Bytes& bytes) { writeResultFile(bytes); }

    // What a search does before its lookups: open, header, version, section
    // table. False at the first step that fails.
    bool load();

    void storeAndLoad(const moxdb::CatalogueBuilder& cat) { storeAndLoad(cat.build()); }
    void storeAndLoad(const moxdb::Bytes& bytes);

    // True when the reader holds no file and neither buffer.
    bool isClosed() const;
    void expectClosed() const;

    MoxDapDatabase* db = nullptr;
};

#endif  // MOX_TESTS_STOREDDATABASEFIXTURE_H
