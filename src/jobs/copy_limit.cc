#include "jobs/copy_limit.h"

#include "printserver/zelprsrv.h"

namespace vx {

int32_t LimitCopyCount(int32_t asked, const char* jobId) {
    const IntSettingName setting("MaxCopies");
    int32_t max = g_prsrv != nullptr ? g_prsrv->GetSetting(setting) : setting.setting->defaultValue;
    int32_t copies = CappedCopies(asked, max);
    if (copies != asked)
        Trace(kTraceNormal, "Copy count %d of job %s cut to %d.\n", static_cast<int>(asked),
              jobId != nullptr ? jobId : "", static_cast<int>(copies));
    return copies;
}

}  // namespace vx
