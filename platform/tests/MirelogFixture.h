#pragma once

#include "platform/trace/Mirelog.h"
#include "platform/trace/RingReader.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <vector>

namespace Trace {

/// A facility of the test's own, a folder for ring files, and the messages that the test put into the ring.
class MirelogTest : public testing::Test {
 protected:
   MirelogTest() {
      Pelm::String pattern = testing::TempDir() + "mirelog.XXXXXX";
      folder = mkdtemp(pattern.data());
   }
   ~MirelogTest() override {
      ringFileDel();
      std::filesystem::remove_all(folder);
   }

   Pelm::String path(Pelm::String const& name) const { return folder + "/" + name; }

   /// The messages of this test alone.
   std::vector<RingMessage> mine(RingContents const& contents) const {
      std::vector<RingMessage> messages;
      for (auto const& message : contents.messages) {
         if (message.facility == facility.name()) {
            messages.push_back(message);
         }
      }
      return messages;
   }

   static std::vector<Pelm::String> textsOf(std::vector<RingMessage> const& messages) {
      std::vector<Pelm::String> texts;
      for (auto const& message : messages) {
         texts.push_back(message.text);
      }
      return texts;
   }

   std::vector<Pelm::String> texts(RingContents const& contents) const { return textsOf(mine(contents)); }
   std::vector<Pelm::String> texts() const { return texts(readRing(ringImage())); }
   std::vector<Pelm::String> textsIn(Pelm::String const& name) const {
      return texts(readRingFile(path(name)));
   }

   /// The only text there should be.
   Pelm::String text() const {
      auto const all = texts();
      return all.size() == 1 ? all.front() : std::to_string(all.size()) + " texts";
   }

   Facility facility{testing::UnitTest::GetInstance()->current_test_info()->name()};
   Pelm::String folder;
};

} // namespace Trace
