#include "agent/utils/reply.h"

#include "agent_test.h"
#include "intercept.h"
#include "leaks.h"

namespace {

TEST(ReplyText, IsNoneUntilOneComes) {
    const Reply reply;
    EXPECT_FALSE(reply);
    EXPECT_EQ(*reply, "");
    EXPECT_STREQ(reply.c_str(), "");
}

TEST(ReplyText, MayBeEmpty) {
    Reply reply;
    EXPECT_TRUE(reply.assign(""));
    EXPECT_TRUE(reply);
    EXPECT_EQ(*reply, "");
}

TEST(ReplyText, IsReplacedAndGathered) {
    Reply reply;
    EXPECT_TRUE(reply.assign("a longer one"));
    EXPECT_TRUE(reply.assign("abc"));
    EXPECT_EQ(*reply, "abc");
    EXPECT_TRUE(reply.append("def"));
    EXPECT_EQ(*reply, "abcdef");
    EXPECT_STREQ(reply.c_str(), "abcdef");
}

TEST(ReplyText, IsGatheredFromNothing) {
    Reply reply;
    EXPECT_TRUE(reply.append("abc"));
    EXPECT_EQ(*reply, "abc");
}

TEST(ReplyText, GoesWithItsOwner) {
    Reply reply;
    EXPECT_TRUE(reply.assign("abc"));
    Reply owner = std::move(reply);
    EXPECT_STREQ(owner.c_str(), "abc");
    char *block = owner.release();
    EXPECT_STREQ(block, "abc");
    EXPECT_FALSE(owner);
    EXPECT_EQ(*owner, "");
    std::free(block);
}

TEST(ReplyText, IsFreed) {
    expect_nothing_left([] {
        Reply reply;
        EXPECT_TRUE(reply.assign("abc"));
    });
}

TEST(ReplyText, StaysWhatItWasWithoutMemory) {
    Reply reply;
    intercept::refuse_next("realloc");
    EXPECT_FALSE(reply.append("abc"));
    EXPECT_FALSE(reply);
    EXPECT_TRUE(reply.assign("abc"));
    intercept::refuse_next("realloc");
    EXPECT_FALSE(reply.assign("d"));
    intercept::refuse_next("realloc");
    EXPECT_FALSE(reply.append("d"));
    EXPECT_EQ(*reply, "abc");
}

}  // namespace
