#include "InteropCell.h"

#include <gtest/gtest.h>

// Each cell of the matrix is a test of its own: the engine against one far
// end over one transport with one codec. The bench runs every cell and
// prints the matrix; this suite runs each stack, transport and codec once.

namespace interop {

// Test lists name a cell by its name rather than by its bytes.
void PrintTo(const Cell& cell, std::ostream* out) {
    *out << cell.name();
}

} // namespace interop

namespace {

using interop::Cell;
using interop::Check;

class Interop : public testing::TestWithParam<Cell> {};

} // namespace

TEST_P(Interop, CallsAndIsCalledWithToneBothWaysDtmfHoldAndTransfer) {
    const auto result = interop::runCell(GetParam());
    ASSERT_TRUE(result.notApplicable.empty()) << result.notApplicable;
    EXPECT_TRUE(result.setupMs.has_value());
    for (const auto& [name, check] : result.checks()) {
        EXPECT_NE(check.outcome, Check::Outcome::fail) << name << ": " << check.detail;
        // A check that does not apply says why.
        if (check.outcome == Check::Outcome::notApplicable) {
            EXPECT_FALSE(check.detail.empty()) << name;
        }
        std::printf("%s %s: %s %s\n", GetParam().name().c_str(), name.c_str(),
                    interop::outcomeName(check.outcome), check.detail.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(Matrix, Interop, testing::ValuesIn(interop::representativeCells()),
                         [](const testing::TestParamInfo<Cell>& info) {
                             return info.param.name();
                         });
