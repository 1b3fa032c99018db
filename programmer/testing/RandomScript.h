#pragma once

#include "programmer/testing/Script.h"
#include "programmer/testing/World.h"

#include <algorithm>

namespace ZandorL3Tunnel {

/// Writes scripts at random: each has its own weather, which says what its chip does wrong, and its own size.
class RandomScript {
 public:
   explicit RandomScript(std::uint32_t seed) : random_(seed) {
      weather_ = Weather(draw(6));
      static constexpr unsigned sizes[] = {1, 2, 4, 8, 16, World::destinationCount};
      destinations_ = sizes[draw(std::size(sizes))];
      viaPool_ = draw(3) == 0 ? ~0u : bits() & bits();
      hurry_ = 1 + draw(24);
   }

   Script script(std::size_t length) {
      Script steps;
      for (Asic::Index interface = 1; interface < World::interfaceRows && steps.size() < length;
           ++interface) {
         if (draw(4) != 0) {
            steps.push_back({Step::Act::interface, std::uint8_t(interface), 0, false, 0});
         }
      }
      while (steps.size() < length) {
         steps.push_back(step());
      }
      return steps;
   }

 private:
   enum class Weather { calm, fair, refusing, late, losing, all };

   unsigned draw(std::size_t below) { return unsigned(random_() % below); }
   std::uint32_t bits() { return std::uint32_t(random_()); }

   Step step() {
      auto what = draw(1000);
      if (what < 460) {
         return {Step::Act::run, 0, std::uint16_t(1 + draw(hurry_)), false, 0};
      }
      if (what < 490) {
         return {Step::Act::settle, 0, 0, false, 0};
      }
      if (what < 500) {
         return draw(2) == 0 ? Step{Step::Act::initTables, 0, 0, false, 0} : faults();
      }
      if (what < 560) {
         return faults();
      }
      return what < 700 ? interfaceStep() : destinationStep();
   }

   // The last interface lies outside its table.
   Step interfaceStep() {
      auto interface = std::uint8_t(1 + draw(World::interfaceRows));
      if (draw(3) == 0) {
         return {Step::Act::interfaceGone, interface, 0, false, 0};
      }
      return {Step::Act::interface, interface, std::uint16_t(draw(World::interfaceValues)), false, 0};
   }

   Step destinationStep() {
      auto destination = std::uint8_t(draw(destinations_));
      switch (draw(12)) {
      case 0:
      case 1:
      case 2:
         return {Step::Act::destinationGone, destination, 0, false, 0};
      case 3:
      case 4:
         return {Step::Act::again, destination, 0, false, 0};
      case 5:
         return {Step::Act::letGo, destination, 0, false, 0};
      case 6:
         return {Step::Act::reference, destination, 0, draw(8) == 0, vias()};
      default:
         return {Step::Act::destination, destination, 0, draw(8) == 0, vias()};
      }
   }

   std::uint32_t vias() {
      auto set = viaPool_ & bits() & bits();
      return draw(2) == 0 ? set & bits() : set;
   }

   Step faults() {
      auto table = std::uint8_t(draw(World::tableCount + 1));
      auto few = std::uint16_t(1 + draw(4));
      switch (draw(weather_ == Weather::calm ? 1 : 3)) {
      case 0:
         return {Step::Act::run, 0, few, false, 0};
      case 1:
         return {draw(2) == 0 ? Step::Act::answers : Step::Act::calm, 0, 0, false, 0};
      default:
         break;
      }
      switch (weather_) {
      case Weather::refusing:
         return refusal(table, few);
      case Weather::late:
         return lateness(table, few);
      case Weather::losing:
         return loss(table, few);
      case Weather::all:
         return draw(3) == 0 ? loss(table, few) : draw(2) == 0 ? refusal(table, few) : lateness(table, few);
      default:
         return {Step::Act::repeat, table, few, false, 0};
      }
   }

   Step refusal(std::uint8_t table, std::uint16_t few) {
      if (draw(6) == 0) {
         return {Step::Act::draw, 0, std::uint16_t(draw(200)), false, bits() | 1};
      }
      // More often than a delete is issued again at once.
      auto count = draw(8) == 0 ? std::uint16_t(12) : few;
      return {Step::Act::refuse, table, count, draw(2) == 0, 0};
   }

   Step lateness(std::uint8_t table, std::uint16_t few) {
      return {draw(2) == 0 ? Step::Act::delay : Step::Act::hold, table, std::uint16_t(few * 3), false, 0};
   }

   Step loss(std::uint8_t table, std::uint16_t few) {
      if (draw(6) == 0) {
         return {Step::Act::draw, 0, std::uint16_t(draw(100)), true, bits() | 1};
      }
      return {draw(3) == 0 ? Step::Act::repeat : Step::Act::lose, table, few, false, 0};
   }

   std::mt19937 random_;
   Weather weather_{};
   unsigned destinations_{};
   unsigned hurry_{};
   std::uint32_t viaPool_{};
};

} // namespace ZandorL3Tunnel
