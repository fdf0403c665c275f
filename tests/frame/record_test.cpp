#include <gtest/gtest.h>

#include "frame/record.h"

namespace {

struct TwoFields {
    std::int32_t id;
    double payload;
};

TEST(Record, IdentifierIsCheckedAndClearedOnFree) {
    TwoFields* rec = rok::alloc_record<TwoFields>(25, 64);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->payload, 0.0) << "records start zeroed";
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(rec) % 64, 0u);
    EXPECT_EQ(rok::check_record(rec, 25), rokStatusOk);
    EXPECT_EQ(rok::check_record(rec, 26), rokStatusBadContext);
    EXPECT_EQ(rok::check_record<TwoFields>(nullptr, 25), rokStatusNullPtr);
    // A Free of the wrong kind changes nothing.
    EXPECT_EQ(rok::free_record(rec, 26), rokStatusBadContext);
    EXPECT_EQ(rec->id, 25);
    EXPECT_EQ(rok::free_record<TwoFields>(nullptr, 25), rokStatusNullPtr);
    EXPECT_EQ(rok::free_record(rec, 25), rokStatusOk);
}

}  // namespace
