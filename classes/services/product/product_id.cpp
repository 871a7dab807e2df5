#include "services/product/product_id.h"

#include <cstdlib>

#include "config/base/no_destructor.h"
#include "services/product/read_file.h"

namespace {

std::string FindProductID()
{
    if (const char* name = getenv("PRODUCT_ID")) return name;
    std::string text = ReadWholeFile("/etc/product_id");
    text.erase(text.find_last_not_of(" \n\r\t") + 1);
    return text;
}

}  // namespace

std::string CProductID::getProductID()
{
    // A worker thread may still ask while the process ends.
    static vexa::NoDestructor<const std::string> name(FindProductID());
    return *name;
}

bool CProductID::isRelease()
{
#ifdef VEXA_ENGINEERING_BUILD
    return false;
#else
    return true;
#endif
}
