#pragma once

#include <algorithm>
#include <functional>
#include <vector>

namespace ZandorL3Tunnel {

/// A list of steps that still fails and has none too many: whichever single step is left out of the result,
/// it fails no longer, and none can be replaced by a simpler one. So it is unless `mostTrials` trials did not
/// suffice.
///
/// `steps` should fail; `fails(list)` tries one list, always with the same outcome; `simpler(step)` has the
/// steps that may take the place of `step`, none of which leads back to it.
template <class Step>
class Shortener {
 public:
   using Steps = std::vector<Step>;
   using Fails = std::function<bool(Steps const&)>;
   using Simpler = std::function<Steps(Step const&)>;

   Shortener(Fails fails, Simpler simpler, unsigned mostTrials = 20000)
       : fails_(std::move(fails)), simpler_(std::move(simpler)), trialsLeft_(mostTrials) {}

   Steps shortened(Steps steps) {
      bool isShorter = true;
      while (isShorter && trialsLeft_ != 0) {
         for (auto size = std::max<std::size_t>(steps.size() / 2, 1); size > 1; size /= 2) {
            leaveOut(steps, size);
         }
         while (leaveOut(steps, 1)) {
         }
         isShorter = simplify(steps);
      }
      return steps;
   }

 private:
   bool stillFails(Steps const& steps) {
      if (trialsLeft_ == 0) {
         return false;
      }
      --trialsLeft_;
      return fails_(steps);
   }

   // From the end: what came late mostly matters least.
   bool leaveOut(Steps& steps, std::size_t size) {
      bool isShorter = false;
      for (auto end = steps.size(); end > 0;) {
         auto begin = end > size ? end - size : 0;
         auto fewer = steps;
         fewer.erase(fewer.begin() + std::ptrdiff_t(begin), fewer.begin() + std::ptrdiff_t(end));
         if (stillFails(fewer)) {
            steps = std::move(fewer);
            isShorter = true;
         }
         end = begin;
      }
      return isShorter;
   }

   bool simplify(Steps& steps) {
      bool isSimpler = false;
      for (std::size_t at = 0; at < steps.size(); ++at) {
         for (bool again = true; again;) {
            again = false;
            for (auto const& step : simpler_(steps[at])) {
               auto before = std::exchange(steps[at], step);
               if (stillFails(steps)) {
                  isSimpler = again = true;
                  break;
               }
               steps[at] = before;
            }
         }
      }
      return isSimpler;
   }

   Fails fails_;
   Simpler simpler_;
   unsigned trialsLeft_;
};

} // namespace ZandorL3Tunnel
