// The headers also go by their bare names, where the team has none of that name.
#include <ModemEmulator.h>

#include "Manager.h"

bool firstProfileIsRead() {
    kiv::FilterProfileParams any;
    return !kiv::Manager::getInstance().filter(any).empty() &&
           !kiv::emulator::ModemEmulator::getInstance().profiles(WDS_PROFILE_TYPE_3GPP_V01).empty();
}
