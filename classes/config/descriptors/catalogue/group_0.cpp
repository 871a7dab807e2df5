#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"

namespace vexa::config::catalogue {

/// Group 0: the unit's condition as bits, for the device's own programs.
void CreateGroup_0()
{
    Register(Integer(PARAM_ID(Status), "Unit Status", "Status")
                 .Feature(eFeature_0)
                 .Transient()
                 .Range(0, 0xffffffff)
                 .ClassName("hidden_param")
                 .Description("Condition of the unit, one bit per subsystem that has come up."));
    // Kept across restarts on purpose: the next start-up reads it.
    Register(Integer(PARAM_ID(PersistStatus), "Persistent Status", "PersStat")
                 .Feature(eFeature_0)
                 .NotInRegisters()
                 .NotReset()
                 .Range(0, 0xffffffff)
                 .ClassName("hidden_param")
                 .Description("Bits that tell the next start-up how the unit was last shut down."));
}

}  // namespace vexa::config::catalogue
