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
using test_support::occurrences;

std::string rowOf(std::size_t number) {
    return R"({"n":)" + std::to_string(number) + "}";
}

class ChunkSinkTest : public testing::Test {
  protected:
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
    std::size_t rowsIn(const std::string &key) { return occurrences(cache.at(key), "{\"n\":"); }

    ChunkedList list{"groups_ex", "groups", "[%s:%d] groups_ex: oversized row %zu >= %d bytes, dropping\n"};
    std::map<std::string, std::string> cache;
    std::size_t erased = 0;
};

TEST_F(ChunkSinkTest, ChunksOf500RowsReplaceThoseOfTheLastTime) {
    storeRows(2100);
    EXPECT_EQ(5u, cache.size());
    storeRows(1201);
    EXPECT_EQ(2u, erased);
    EXPECT_EQ(500u, rowsIn("groups_ex/0"));
    EXPECT_EQ(500u, rowsIn("groups_ex/1"));
    EXPECT_EQ(201u, rowsIn("groups_ex/2"));
    for (const char *const key : {"groups_ex/0", "groups_ex/1"})
        EXPECT_EQ(1u, occurrences(cache.at(key), "\"isLastChunk\":false")) << key;
    const auto before = cache;
    {
        ChunkSink unfinished(list, store());
        for (std::size_t i = 0; i < 1500; ++i)
            unfinished.add("{}");
    }
    EXPECT_EQ(before, cache) << "nothing is stored before the end";

    const struct {
        std::size_t count;
        const char *rows;
    } cases[] = {{0, ""}, {2, R"({"n":0},{"n":1})"}};
    for (const auto &[count, rows] : cases) {
        storeRows(count);
        EXPECT_EQ(
            (std::map<std::string, std::string>{
                {"groups_ex/0", std::string(R"({"groups":{"rows":[)") + rows +
                                    R"(],"chunkIndex":0,"isLastChunk":true},)"
                                    R"("resp":{"respCode":0,"respMsg":"Success","status":"success"}})"}}),
            cache);
    }
    storeRows(500);
    EXPECT_EQ(1u, cache.size()) << "a full chunk may be the last";
}

TEST_F(ChunkSinkTest, ChunksStayBelowTheirSize) {
    // The second of two rows fits as long as both with their comma are below the limit.
    const std::size_t most = ChunkedList::kChunkSize - 1;
    const struct {
        std::size_t first, second, rows, chunks;
    } cases[] = {{1000, most - 1001, 2, 1},
                 {1000, most - 1000, 2, 2},
                 {most - 2, 1, 2, 1},
                 {most - 2, 2, 2, 2},
                 {most - 1, 2, 1, 1}};  // the first one fits nowhere
    devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "test");
    for (const auto &[first, second, rows, chunks] : cases) {
        cache.clear();
        ChunkSink sink(list, store());
        sink.add(std::string(first, '1'));
        sink.add(std::string(second, '2'));
        EXPECT_EQ(rows, sink.rowCount());
        ASSERT_EQ(ResultCode::Success, sink.finish());
        EXPECT_EQ(chunks, cache.size()) << first << " " << second;
    }
    EXPECT_EQ(1u, occurrences(test_support::readFile(platform::paths::kLogFile),
                              "groups_ex: oversized row 196606 >= 196608 bytes, dropping"));
    devmgrLogClose();

    PageSink page;
    EXPECT_EQ("", page.rows());
    page.add("{}");
    page.add(rowOf(1));
    EXPECT_EQ(R"({},{"n":1})", page.rows());
    EXPECT_EQ(2u, page.rowCount());
}

TEST_F(ChunkSinkTest, ListsOfSeveralThreadsDoNotMix) {
    std::vector<std::jthread> threads;
    for (const std::size_t count : {100, 700, 1300, 1900})
        threads.emplace_back([this, count] {
            for (int i = 0; i < 50; ++i)
                storeRows(count);
        });
    threads.clear();
    // What is left is one of the lists, and nothing of another.
    std::size_t rows = 0;
    for (const auto &[key, answer] : cache) {
        rows += rowsIn(key);
        const bool isLast = key == "groups_ex/" + std::to_string(cache.size() - 1);
        EXPECT_EQ(isLast ? 1u : 0u, occurrences(answer, "\"isLastChunk\":true")) << key;
    }
    EXPECT_EQ((cache.size() - 1) * 600 + 100, rows);
}

}  // namespace
