// Each user's last time-phased plan, kept by the service (the routes in
// phased_routes.cpp fill and read it).
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "http/server.h"
#include "mrp/mrp_data_info.h"

namespace mrpcalc::http {

// Each user's last plan, for the items, orders and records asked for one
// by one: the whole of it would be a large answer (hundreds of thousands
// of orders at scale).
struct Service::PhasedStore {
  struct Entry {
    std::string id;
    std::shared_ptr<const MrpDataInfo::PhasedPlan> plan;
  };
  std::mutex mutex;
  std::map<int32_t, std::shared_ptr<const Entry>> by_user;
  uint64_t next = 1;
};

}  // namespace mrpcalc::http
