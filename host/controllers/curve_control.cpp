// Copyright Marvolith contributors.
#include "host/controllers/curve_control.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "host/registry/class_desc.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"

namespace {

constexpr USHORT kCurveChunk = 0x0010;
// Bisection steps of the Bezier parameter: 2^-40 of a segment is far below float precision.
constexpr int kSolveSteps = 40;

std::vector<CurvePoint> DefaultCurve() {
  CurvePoint a;
  a.p = Point2(0.0f, 0.0f);
  CurvePoint b;
  b.p = Point2(1.0f, 1.0f);
  return {a, b};
}

double Cubic(double u, double p0, double p1, double p2, double p3) {
  const double v = 1.0 - u;
  return v * v * v * p0 + 3.0 * v * v * u * p1 + 3.0 * v * u * u * p2 + u * u * u * p3;
}

// y of the segment a -> b at x (a.p.x <= x <= b.p.x).
float SegmentValue(const CurvePoint& a, const CurvePoint& b, float x) {
  const double x0 = a.p.x, x3 = b.p.x;
  if (x3 - x0 <= 0.0) return b.p.y;
  const bool a_bez = (a.flags & CURVEP_BEZIER) != 0;
  const bool b_bez = (b.flags & CURVEP_BEZIER) != 0;
  if (!a_bez && !b_bez) return static_cast<float>(a.p.y + (b.p.y - a.p.y) * (x - x0) / (x3 - x0));
  // Control points; handle x kept inside the segment so x(u) is monotonic.
  const Point2 h1 = a_bez ? a.p + a.out : a.p;
  const Point2 h2 = b_bez ? b.p + b.in : b.p;
  const double x1 = std::clamp<double>(h1.x, x0, x3);
  const double x2 = std::clamp<double>(h2.x, x0, x3);
  double lo = 0.0, hi = 1.0;
  for (int i = 0; i < kSolveSteps; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (Cubic(mid, x0, x1, x2, x3) < x) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return static_cast<float>(Cubic(0.5 * (lo + hi), a.p.y, h1.y, h2.y, b.p.y));
}

}  // namespace

// The whole set of curves before (and, on undo, after) one hold's changes.
class CurveCtlRestore : public RestoreObj {
 public:
  explicit CurveCtlRestore(ICurveCtl* c)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetState()) {}
  void Restore(int is_undo) override {
    ICurveCtl* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetState();
    c->SetState(before_);
    c->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  void Redo() override {
    ICurveCtl* c = Get();
    if (!c) return;
    c->SetState(after_);
    c->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  void EndHold() override {
    if (ICurveCtl* c = Get()) c->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return "Curve Change"; }

 private:
  ICurveCtl* Get() { return static_cast<ICurveCtl*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  ICurveCtl::State before_;
  ICurveCtl::State after_;
};

// ---- ICurve ----

CurvePoint ICurve::GetPoint(TimeValue, int i) const {
  if (i < 0 || i >= GetNumPts()) return CurvePoint();
  return points_[static_cast<size_t>(i)];
}

float ICurve::ClampX(int i, float x) const {
  if (i > 0) x = std::max(x, points_[static_cast<size_t>(i - 1)].p.x);
  if (i + 1 < GetNumPts()) x = std::min(x, points_[static_cast<size_t>(i + 1)].p.x);
  return x;
}

void ICurve::SetPoint(TimeValue, int i, const CurvePoint& pt, bool check_range) {
  if (i < 0 || i >= GetNumPts()) return;
  CurvePoint p = pt;
  if (check_range) p.p.x = ClampX(i, p.p.x);
  if (points_[static_cast<size_t>(i)] == p) return;
  owner_->BeforeChange();
  points_[static_cast<size_t>(i)] = p;
  owner_->AfterChange();
}

void ICurve::Insert(int i, const CurvePoint& pt) {
  if (i < 0 || i > GetNumPts()) i = GetNumPts();
  CurvePoint p = pt;
  if (i > 0) p.p.x = std::max(p.p.x, points_[static_cast<size_t>(i - 1)].p.x);
  if (i < GetNumPts()) p.p.x = std::min(p.p.x, points_[static_cast<size_t>(i)].p.x);
  owner_->BeforeChange();
  points_.insert(points_.begin() + i, p);
  owner_->AfterChange();
}

void ICurve::Delete(int i) {
  if (i < 0 || i >= GetNumPts()) return;
  owner_->BeforeChange();
  points_.erase(points_.begin() + i);
  owner_->AfterChange();
}

float ICurve::GetValue(TimeValue, float x, Interval*) const {
  if (points_.empty()) return 0.0f;
  if (!(x > points_.front().p.x)) return points_.front().p.y;  // NaN x reads the start
  if (x >= points_.back().p.x) return points_.back().p.y;
  // First point beyond x; x lies in the segment that ends there.
  auto it = std::upper_bound(points_.begin(), points_.end(), x,
                             [](float v, const CurvePoint& p) { return v < p.p.x; });
  return SegmentValue(*(it - 1), *it, x);
}

// ---- ICurveCtl ----

ICurveCtl::ICurveCtl(bool loading) {
  if (!loading) SetState({DefaultCurve()});
}

ICurveCtl::~ICurveCtl() = default;

void ICurveCtl::SetNumCurves(int n) {
  if (n < 0 || n == GetNumCurves()) return;
  BeforeChange();
  State s = GetState();
  s.resize(static_cast<size_t>(n), DefaultCurve());
  SetState(s);
  AfterChange();
}

ICurve* ICurveCtl::GetControlCurve(int i) {
  return i >= 0 && i < GetNumCurves() ? curves_[static_cast<size_t>(i)].get() : nullptr;
}

ICurveCtl::State ICurveCtl::GetState() const {
  State s;
  s.reserve(curves_.size());
  for (const auto& c : curves_) s.push_back(c->points_);
  return s;
}

void ICurveCtl::SetState(const State& state) {
  // Curve objects are kept while the count stays, so pointers held by callers survive undo.
  while (curves_.size() > state.size()) curves_.pop_back();
  while (curves_.size() < state.size())
    curves_.push_back(std::unique_ptr<ICurve>(new ICurve(this)));
  for (size_t i = 0; i < state.size(); ++i) curves_[i]->points_ = state[i];
}

void ICurveCtl::BeforeChange() {
  if (HoldWantsRecord(this)) theHold.Put(new CurveCtlRestore(this));
}

void ICurveCtl::AfterChange() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }

RefTargetHandle ICurveCtl::Clone(RemapDir& remap) {
  auto* c = new ICurveCtl(true);
  c->SetState(GetState());
  BaseClone(this, c, remap);
  return c;
}

IOResult ICurveCtl::Save(ISave* isave) {
  for (const auto& c : curves_) {
    isave->BeginChunk(kCurveChunk);
    ULONG written = 0;
    const auto count = static_cast<std::uint32_t>(c->points_.size());
    IOResult res = isave->Write(&count, sizeof(count), &written);
    for (const CurvePoint& p : c->points_) {
      const float f[6] = {p.p.x, p.p.y, p.in.x, p.in.y, p.out.x, p.out.y};
      const std::int32_t flags = p.flags;
      if (res == IO_OK) res = isave->Write(f, sizeof(f), &written);
      if (res == IO_OK) res = isave->Write(&flags, sizeof(flags), &written);
    }
    isave->EndChunk();
    if (res != IO_OK) return res;
  }
  return IO_OK;
}

IOResult ICurveCtl::Load(ILoad* iload) {
  constexpr ULONG kPointBytes = 6 * sizeof(float) + sizeof(std::int32_t);
  State state;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    if (id != kCurveChunk) return IO_OK;
    std::uint32_t count = 0;
    ULONG read = 0;
    const ULONG length = iload->CurChunkLength();
    if (length < sizeof(count) || iload->Read(&count, sizeof(count), &read) != IO_OK ||
        count > static_cast<std::uint32_t>(kMaxLoadedPoints) ||
        length != sizeof(count) + count * kPointBytes) {
      return IO_ERROR;
    }
    std::vector<CurvePoint> points(count);
    for (CurvePoint& p : points) {
      float f[6];
      std::int32_t flags = 0;
      if (iload->Read(f, sizeof(f), &read) != IO_OK ||
          iload->Read(&flags, sizeof(flags), &read) != IO_OK) {
        return IO_ERROR;
      }
      p.p = Point2(f[0], f[1]);
      p.in = Point2(f[2], f[3]);
      p.out = Point2(f[4], f[5]);
      p.flags = flags;
    }
    state.push_back(std::move(points));
    return IO_OK;
  });
  if (res == IO_OK) SetState(state);
  return res;
}

namespace {

class CurveCtlClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new ICurveCtl(loading); }
  const char* ClassName() override { return "CurveControl"; }
  const char* InternalName() override { return "CurveControl"; }
  SClass_ID SuperClassID() override { return REF_MAKER_CLASS_ID; }
  Class_ID ClassID() override { return CURVE_CONTROL_CLASS_ID; }
  const char* Category() override { return ""; }
};

}  // namespace

void RegisterCurveControlClass() {
  static CurveCtlClassDesc desc;
  static bool done = false;
  if (done) return;
  done = true;
  ClassDirectory::Get().AddClass(&desc);
}
