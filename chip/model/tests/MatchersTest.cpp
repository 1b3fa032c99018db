#include "chip/model/testing/ChipTest.h"

#include "platform/asic/testing/TinyTable.h"

namespace ModelChip {
namespace {

using Asic::Index;
using testing::Not;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
using State = Asic::SwTableBase::EntryState;

template <class Matcher>
std::string
explanation(Matcher const& matcher, Handle const& handle) {
   testing::StringMatchResultListener listener;
   testing::SafeMatcherCast<Handle const&>(matcher).MatchAndExplain(handle, &listener);
   return listener.str();
}

TEST(Matchers, TellAHandlesStateAndRow) {
   auto made = Nuv::make<Asic::TinyHandle>(nullptr);
   made->entryStateIs(State::success);
   made->hwEntryIndexIs(7);
   Handle handle(made);
   EXPECT_THAT(handle, HasState(State::success));
   EXPECT_THAT(handle, Not(HasState(State::failed)));
   EXPECT_THAT(handle, RowAt(Index(7)));
   EXPECT_THAT(handle, Not(RowAt(Index(8))));
   EXPECT_EQ(explanation(HasState(State::failed), handle), "its state is success");
   EXPECT_EQ(explanation(RowAt(Index(8)), handle), "its index is 7");
}

TEST(Matchers, NoHandleHasNeither) {
   EXPECT_THAT(Handle(), Not(HasState(State::success)));
   EXPECT_EQ(explanation(RowAt(Index(0)), Handle()), "there is no handle");
}

} // namespace
} // namespace ModelChip
