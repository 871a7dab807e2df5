#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"

namespace vexa::config::catalogue {

/// Group 80: what the unit is. The device fills the values in at start-up.
void CreateGroup_80()
{
    Register(String(PARAM_ID(FormattedSerialNumber), "Serial Number", "Serial")
                 .Status()
                 .Length(0, 19)
                 .Description("Serial number as it is printed on the unit."));
    Register(String(PARAM_ID(SWVersion), "Software Version", "SW Ver")
                 .Status()
                 .Length(0, 32)
                 .Description("Version of the installed software."));
    Register(Integer(PARAM_ID(SerialNumber), "Serial Number Value", "SerialNo")
                 .Type(eCParam_Signed)
                 .Status()
                 .Range(0, 0xffffffff)
                 .ClassName("panel_hidden")
                 .Description("Serial number without prefix; negative on an engineering unit."));
    Register(String(PARAM_ID(Flash_Info), "Flash Info", "FlashInf")
                 .Status()
                 .Length(0, 4096)
                 .ClassName("panel_hidden")
                 .ClassName("data_file")
                 .Description("What was written to the flash memory, and when."));
}

}  // namespace vexa::config::catalogue
