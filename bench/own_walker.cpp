#include "walker.h"

#include "accel/accel.h"

#include <limits>

namespace {

void SetRay(hv::RayRecord& record, const FileRay& ray, int thread)
{
    record.origin         = ray.origin;
    record.direction      = ray.direction;
    record.hit_kind       = hv::kNoKind;
    record.hit_primitive  = hv::kNone;
    record.from_primitive = ray.from;
    record.from_kind =
        static_cast<std::uint8_t>(ray.from == hv::kNone ? hv::PrimitiveKind::None : hv::PrimitiveKind::Triangle);
    record.thread = static_cast<std::uint8_t>(thread);
}

}  // namespace

void ShootOwn(const RaySet& set, std::size_t first, std::size_t last, int thread, Answer* answers)
{
    if (set.kind == RayKind::Closest) {
        for (std::size_t n = first; n < last; ++n) {
            hv::RayRecord record;
            SetRay(record, set.rays[n], thread);
            const bool hit = hv::TraceClosest(record) && record.distance <= set.rays[n].tmax;
            answers[n]     = hit ? Answer{record.distance, record.hit_primitive}
                                 : Answer{std::numeric_limits<float>::infinity(), hv::kNone};
        }
    } else {
        for (std::size_t n = first; n < last; ++n) {
            hv::RayRecord record;
            SetRay(record, set.rays[n], thread);
            record.distance     = set.rays[n].tmax;
            record.is_secondary = 1;
            answers[n]          = {hv::TraceOcclusion(record) ? 1.0f : 0.0f, hv::kNone};
        }
    }
}
