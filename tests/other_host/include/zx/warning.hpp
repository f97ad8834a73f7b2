#pragma once

#include <other_host.hpp>

#include <string>
#include <vector>

OTHER_HOST std::vector<std::string>& warnings();

inline void zxWarningMsgId(const std::string& component, const std::string& key)
{
    warnings().push_back(component + ":" + key);
}
