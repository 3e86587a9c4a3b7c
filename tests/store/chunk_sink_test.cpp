// Long lists in chunks: limits, what is stored and erased, and what an unfinished list leaves behind.
#include "store/chunk_sink.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "common/log.h"
#include "tests/support/root.h"

namespace {

using namespace pavo;

std::string rowOf(std::size_t number) {
    return R"({"n":)" + std::to_string(number) + "}";
}

class ChunkSinkTest : public testing::Test {
  protected:
    void SetUp() override { devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "test"); }
    void TearDown() override {
        logDebug("[%s:%d] end of test\n");
        devmgrLogClose();
    }

    ChunkStore store() {
        return {[this](const std::string &key, const std::string &answer) { cache[key] = answer; },
                [this](const std::string &key) { erased += cache.erase(key); }};
    }
    void storeRows(std::size_t count) {
        ChunkSink sink(list, store());
        for (std::size_t i = 0; i < count; ++i)
            sink.add(rowOf(i));
        EXPECT_EQ(count, sink.rowCount());
        EXPECT_EQ(ResultCode::Success, sink.finish());
    }
    std::size_t rowsIn(const std::string &key) { return test_support::occurrences(cache.at(key), "{\"n\":"); }

    ChunkedList list{"groups_ex", "groups", "[%s:%d] groups_ex: oversized row %zu >= %d bytes, dropping\n"};
    std::map<std::string, std::string> cache;
    std::size_t erased = 0;
};

TEST_F(ChunkSinkTest, ChunksOf500RowsReplaceThoseOfTheLastTime) {
    storeRows(2100);
    EXPECT_EQ(5u, cache.size());
    storeRows(1201);
    EXPECT_EQ(3u, cache.size());
    EXPECT_EQ(2u, erased);
    EXPECT_EQ(500u, rowsIn("groups_ex/0"));
    EXPECT_EQ(500u, rowsIn("groups_ex/1"));
    EXPECT_EQ(201u, rowsIn("groups_ex/2"));
    for (const char *const key : {"groups_ex/0", "groups_ex/1"})
        EXPECT_EQ(1u, test_support::occurrences(cache.at(key), "\"isLastChunk\":false")) << key;
    const auto before = cache;
    storeRows(1201);
    EXPECT_EQ(before, cache);
    EXPECT_EQ(2u, erased);

    storeRows(0);
    EXPECT_EQ((std::map<std::string, std::string>{
                  {"groups_ex/0", R"({"groups":{"rows":[],"chunkIndex":0,"isLastChunk":true},)"
                                  R"("resp":{"respCode":0,"respMsg":"Success","status":"success"}})"}}),
              cache);
    storeRows(2);
    EXPECT_EQ(R"({"groups":{"rows":[{"n":0},{"n":1}],"chunkIndex":0,"isLastChunk":true},)"
              R"("resp":{"respCode":0,"respMsg":"Success","status":"success"}})",
              cache.at("groups_ex/0"));
    storeRows(500);
    EXPECT_EQ(1u, cache.size()) << "a full chunk may be the last";
}

TEST_F(ChunkSinkTest, ChunksStayBelowTheirSize) {
    // The second of two rows fits as long as both with their comma are below the limit.
    const std::size_t most = ChunkedList::kChunkSize - 1;
    const struct {
        std::size_t first, second, chunks;
    } cases[] = {{1000, most - 1001, 1}, {1000, most - 1000, 2}, {most - 2, 1, 1}, {most - 2, 2, 2}};
    for (const auto &[first, second, chunks] : cases) {
        cache.clear();
        ChunkSink sink(list, store());
        sink.add(std::string(first, '1'));
        sink.add(std::string(second, '2'));
        ASSERT_EQ(ResultCode::Success, sink.finish());
        EXPECT_EQ(chunks, cache.size()) << first << " " << second;
    }
}

TEST_F(ChunkSinkTest, OversizedRowIsDroppedAndTheRestGoesOn) {
    ChunkSink sink(list, store());
    sink.add("1");
    sink.add(std::string(0x2fffe, '2'));
    sink.add(std::string(0x2fffd, '3'));
    sink.add("4");
    EXPECT_EQ(3u, sink.rowCount());
    ASSERT_EQ(ResultCode::Success, sink.finish());
    EXPECT_EQ(2u, cache.size());
    EXPECT_EQ(1u, test_support::occurrences(test_support::readFile(platform::paths::kLogFile),
                                            "groups_ex: oversized row 196606 >= 196608 bytes, dropping"));
}

TEST_F(ChunkSinkTest, NothingIsStoredBeforeTheEnd) {
    storeRows(600);
    const auto before = cache;
    {
        ChunkSink unfinished(list, store());
        for (std::size_t i = 0; i < 1500; ++i)
            unfinished.add("{}");
    }
    EXPECT_EQ(before, cache);
}

TEST_F(ChunkSinkTest, ListsOfSeveralThreadsDoNotMix) {
    std::vector<std::thread> threads;
    for (const std::size_t count : {100, 700, 1300, 1900})
        threads.emplace_back([this, count] {
            for (int i = 0; i < 50; ++i)
                storeRows(count);
        });
    for (auto &thread : threads)
        thread.join();
    // What is left is one of the lists, and nothing of another.
    std::size_t rows = 0;
    for (const auto &[key, answer] : cache) {
        rows += rowsIn(key);
        const bool isLast = key == "groups_ex/" + std::to_string(cache.size() - 1);
        EXPECT_EQ(isLast ? 1u : 0u, test_support::occurrences(answer, "\"isLastChunk\":true")) << key;
    }
    EXPECT_EQ((cache.size() - 1) * 600 + 100, rows);
}

TEST_F(ChunkSinkTest, PageJoinsRows) {
    PageSink page;
    EXPECT_EQ("", page.rows());
    page.add("{}");
    page.add(rowOf(1));
    EXPECT_EQ(R"({},{"n":1})", page.rows());
    EXPECT_EQ(2u, page.rowCount());
    EXPECT_EQ(ResultCode::Success, page.error());
}

}  // namespace
