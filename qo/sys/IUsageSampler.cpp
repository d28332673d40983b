#include "qo/sys/IUsageSampler.h"

#include <cmath>
#include <string>

namespace qo {

namespace {

std::string percent(double share) {
  if (share < 0) return "unknown";
  return std::to_string(static_cast<long long>(std::lround(share * 100))) + "%";
}

char const* tri(IUsageSampler::ETri value) {
  return value == IUsageSampler::TriYes ? "yes" : value == IUsageSampler::TriNo ? "no" : "unknown";
}

}  // namespace

IUsageSampler::~IUsageSampler() = default;

String IUsageSampler::CSample::toString() const {
  std::string text = "idle ";
  text += idleMillis < 0 ? std::string("unknown") : std::to_string(idleMillis / 1000) + " s";
  text += ", cpu " + percent(cpuBusy) + ", disk " + percent(diskBusy);
  if (diskOperations >= 0) text += " (" + std::to_string(diskOperations) + " ops)";
  text += std::string(", battery ") + tri(onBattery) + ", full screen " + tri(fullScreen);
  return String::fromUTF8(text);
}

}  // namespace qo
