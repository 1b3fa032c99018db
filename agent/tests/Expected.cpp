#include "agent/tests/Expected.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <zlib.h>

namespace L3TunnelAgent {

namespace {

nlohmann::json
readJson(std::filesystem::path const& file) {
   gzFile const stream = gzopen(file.c_str(), "rb");
   if (!stream) {
      throw std::runtime_error(file.string() + " cannot be opened");
   }
   std::string text;
   char buffer[1 << 14];
   int got;
   while ((got = gzread(stream, buffer, sizeof buffer)) > 0) {
      text.append(buffer, static_cast<std::size_t>(got));
   }
   gzclose(stream);
   if (got < 0) {
      throw std::runtime_error(file.string() + " is damaged");
   }
   return nlohmann::json::parse(text);
}

/// A null value is an absent one.
template <typename T>
std::optional<T>
optional(nlohmann::json const& object, char const* name) {
   auto const& value = object.at(name);
   return value.is_null() ? std::nullopt : std::optional(value.get<T>());
}

ExpectedVia
readVia(nlohmann::json const& via) {
   return {.kind = via.at("kind").get<std::string>(),
           .mac = optional<std::string>(via, "mac"),
           .device = optional<std::string>(via, "dev"),
           .port = optional<std::string>(via, "port_dev"),
           .vlan = optional<std::uint16_t>(via, "vlan"),
           .tagged = optional<bool>(via, "tagged"),
           .weight = via.value("weight", 1U),
           .reason = via.value("reason", std::string())};
}

} // namespace

std::ostream&
operator<<(std::ostream& out, ExpectedVia const& via) {
   out << via.kind << " mac " << via.mac.value_or("-") << " dev " << via.device.value_or("-") << " port "
       << via.port.value_or("-") << " vlan " << (via.vlan ? std::to_string(*via.vlan) : "-") << " tagged "
       << (via.tagged ? std::to_string(*via.tagged) : "-") << " weight " << via.weight;
   return via.reason.empty() ? out : out << " (" << via.reason << ")";
}

std::filesystem::path
recordedFile(std::string const& fabric, std::string const& name, std::string const& snapshot) {
   return std::filesystem::path(AGENT_TESTDATA) / fabric / snapshot / name;
}

std::filesystem::path
recordedEvents(std::string const& fabric) {
   return std::filesystem::path(AGENT_TESTDATA) / fabric / "events.rnl.gz";
}

std::vector<std::string>
snapshots(std::string const& fabric) {
   std::vector<std::string> names;
   for (auto const& entry :
        std::filesystem::directory_iterator(std::filesystem::path(AGENT_TESTDATA) / fabric)) {
      if (entry.is_directory()) {
         names.push_back(entry.path().filename().string());
      }
   }
   std::sort(names.begin(), names.end());
   return names;
}

std::vector<std::string>
testedSnapshots(std::string const& fabric) {
   auto all = snapshots(fabric);
#ifndef L3TUNNEL_LONG_TESTS
   if (fabric == "big") {
      return {all.front(), all[all.size() / 2], all.back()};
   }
#endif
   return all;
}

ExpectedVias
expectedVias(std::string const& fabric, std::string const& snapshot) {
   return expectedViasOf(recordedFile(fabric, "expected.json.gz", snapshot));
}

ExpectedVias
expectedViasOf(std::filesystem::path const& file) {
   ExpectedVias result;
   for (auto const& entry : readJson(file)) {
      auto& vias = result[entry.at("vtep").get<std::string>()];
      for (auto const& via : entry.at("vias")) {
         vias.insert(readVia(via));
      }
   }
   return result;
}

std::vector<ExpectedEgress>
expectedEgress(std::string const& fabric, std::string const& snapshot) {
   std::vector<ExpectedEgress> result;
   for (auto const& entry : readJson(recordedFile(fabric, "expected_egress.json.gz", snapshot))) {
      result.push_back({.device = entry.at("dev").get<std::string>(),
                        .port = entry.at("port_dev").get<std::string>(),
                        .sourceMac = entry.at("src_mac").get<std::string>(),
                        .vlan = optional<std::uint16_t>(entry, "vlan"),
                        .tagged = entry.at("tagged").get<bool>()});
   }
   return result;
}

} // namespace L3TunnelAgent
