#include "agent/utils/reply.h"

#include "agent_test.h"
#include "intercept.h"

namespace {

TEST(ReplyText, IsNoneUntilOneComes) {
    const Reply reply;
    EXPECT_FALSE(reply);
    EXPECT_EQ("", *reply);
    EXPECT_STREQ("", reply.c_str());
}

TEST(ReplyText, MayBeEmpty) {
    Reply reply;
    EXPECT_TRUE(reply.assign(""));
    EXPECT_TRUE(reply);
    EXPECT_EQ("", *reply);
}

TEST(ReplyText, IsReplacedAndGathered) {
    Reply reply;
    EXPECT_TRUE(reply.assign("a longer one"));
    EXPECT_TRUE(reply.assign("abc"));
    EXPECT_EQ("abc", *reply);
    EXPECT_TRUE(reply.append("def"));
    EXPECT_EQ("abcdef", *reply);
    EXPECT_STREQ("abcdef", reply.c_str());
}

TEST(ReplyText, GoesWithItsOwner) {
    Reply reply;
    EXPECT_TRUE(reply.assign("abc"));
    Reply owner = std::move(reply);
    EXPECT_STREQ("abc", owner.c_str());
    char *block = owner.release();
    EXPECT_STREQ("abc", block);
    EXPECT_FALSE(owner);
    EXPECT_EQ("", *owner);
    std::free(block);
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
    EXPECT_EQ("abc", *reply);
}

}  // namespace
