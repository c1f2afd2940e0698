// Copyright Marvolith contributors.
// Built-in functions of the script runner that riggers' scripts use beyond the basics: scene
// edits (modifiers, moving in a coordinate system, hiding, locking tracks), list controllers,
// Euler track orders, shapes, files and streams, script-level undo and the tool modes.
#include <algorithm>
#include <climits>
#include <cctype>
#include <filesystem>
#include <numbers>
#include <fstream>
#include <sstream>

#include "host/controllers/control_interfaces.h"
#include "host/core/control.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/math/matrix3.h"
#include "host/objects/spline_shape.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"
#include "host/undo/hold.h"

ScriptStream::~ScriptStream() {
  if (open && writing) Flush();
}

bool ScriptStream::Flush() {
  if (path.empty() || !writing) return true;
  std::ofstream out(path, std::ios::binary | (flushed == 0 ? std::ios::trunc : std::ios::app));
  if (!out) return false;
  out.write(text.data() + flushed, static_cast<std::streamsize>(text.size() - flushed));
  flushed = text.size();
  return static_cast<bool>(out);
}

namespace script_internal {
namespace {

bool Named(std::string_view name, std::string_view want) { return ScriptNameEquals(name, want); }

[[noreturn]] void CannotConvert(const ScriptValue& v, std::string_view type) {
  Raise("Unable to convert: " + ScriptValueString(v) + " to type: " + std::string(type));
}

// ---------------------------------------------------------------------------------------------
// Coordinate systems.

struct CoordSys {
  enum class Kind { kWorld, kParent, kLocal, kNode, kMatrix } kind = Kind::kWorld;
  AnimHandle node = 0;
  Matrix3 tm;
};

std::vector<CoordSys>& CoordSysStack() {
  static std::vector<CoordSys> stack;
  return stack;
}

Matrix3 WithoutScale(Matrix3 m) {
  m.NoScale();
  return m;
}

// The reference coordinate systems by script name, with the host's numbers.
struct CoordSysName {
  const char* name;
  int value;
};
constexpr CoordSysName kRefCoordSys[] = {
    {"view", COORDS_HYBRID}, {"screen", COORDS_SCREEN}, {"world", COORDS_WORLD},
    {"parent", COORDS_PARENT}, {"local", COORDS_LOCAL}, {"grid", COORDS_OBJECT},
    {"gimbal", COORDS_GIMBAL}, {"working_pivot", COORDS_WORKINGPIVOT}};

constexpr CoordSysName kPivotModes[] = {{"none", PIV_NONE},
                                        {"pivotOnly", PIV_PIVOT_ONLY},
                                        {"objectOnly", PIV_OBJECT_ONLY},
                                        {"hierarchyOnly", PIV_HIERARCHY_ONLY}};

template <size_t N>
int FindMode(const CoordSysName (&table)[N], const ScriptValue& v, std::string_view what) {
  if (v.Is(FPType::TYPE_NAME)) {
    for (const CoordSysName& e : table) {
      if (Named(v.AsString(), e.name)) return e.value;
    }
  }
  std::string names;
  for (const CoordSysName& e : table) names += (names.empty() ? "#" : ", #") + std::string(e.name);
  Raise("Runtime error: " + std::string(what) + " wants one of " + names +
        ", got: " + ScriptValueString(v));
}

template <size_t N>
ScriptValue ModeName(const CoordSysName (&table)[N], int value) {
  for (const CoordSysName& e : table) {
    if (e.value == value) return FPValue::Name(e.name);
  }
  return FPValue(value);
}

// ---------------------------------------------------------------------------------------------
// Scene edits.

ScriptValue IsDeleted(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& v = call.Arg(0);
  switch (v.GetKind()) {
    case ScriptValue::Kind::kSubAnim:
      return FPValue(v.SubAnimParent() == nullptr);
    case ScriptValue::Kind::kMixin:
      return FPValue(v.MixinOwner() == nullptr);
    case ScriptValue::Kind::kValue: {
      const FPType t = v.Fp().Type();
      if (t == FPType::TYPE_INODE || t == FPType::TYPE_REFTARG || t == FPType::TYPE_CONTROL)
        return FPValue(v.Fp().AsHandle() != 0 && !v.AsRefTarg());
      break;
    }
    default:
      break;
  }
  CannotConvert(v, "MAXWrapper");
}

ScriptValue HideNodes(ScriptCall& call, bool hide) {
  call.ExpectArgs(1, 1);
  for (INode* node : NodesOf(call.Arg(0))) node->Hide(hide);
  return FPValue::Void();
}

Modifier* ModifierArg(const ScriptValue& v) {
  auto* mod = dynamic_cast<Modifier*>(v.AsRefTarg());
  if (!mod) CannotConvert(v, "Modifier");
  return mod;
}

// The node's modifier stack, made when the node has none yet.
IDerivedObject* StackOf(INode* node, bool make) {
  Object* obj = node->GetObjectRef();
  if (obj && obj->SuperClassID() == GEN_DERIVOB_CLASS_ID) return static_cast<IDerivedObject*>(obj);
  if (!make) return nullptr;
  IDerivedObject* derived = CreateDerivedObject(obj);
  node->SetObjectRef(derived);
  return node->GetObjectRef() == derived ? derived : nullptr;
}

ScriptValue AddModifier(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  Modifier* mod = ModifierArg(call.Arg(1));
  int before = 0;
  if (const ScriptValue* b = call.Key("before")) {
    before = ToInt(*b);
    if (before < 0) Raise("Runtime error: addModifier before: must be 0 or more, got: " +
                          ScriptValueString(*b));
  }
  for (INode* node : NodesOf(call.Arg(0))) {
    IDerivedObject* stack = StackOf(node, true);
    if (!stack) Raise("Runtime error: cannot add a modifier to " + ScriptValueString(FPValue(node)));
    stack->AddModifier(mod, nullptr, std::min(before, stack->NumModifiers()));
  }
  return FPValue(true);
}

ScriptValue DeleteModifier(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  INode* node = call.Arg(0).AsNode();
  if (!node) CannotConvert(call.Arg(0), "Node");
  IDerivedObject* stack = StackOf(node, false);
  const int count = stack ? stack->NumModifiers() : 0;
  int index = -1;
  if (call.Arg(1).IsNumber()) {
    index = ToInt(call.Arg(1)) - 1;
  } else {
    Modifier* mod = ModifierArg(call.Arg(1));
    for (int i = 0; i < count; ++i) {
      if (stack->GetModifier(i) == mod) index = i;
    }
  }
  if (index < 0 || index >= count) {
    Raise("Runtime error: no such modifier on " + ScriptValueString(FPValue(node)) + ": " +
          ScriptValueString(call.Arg(1)));
  }
  stack->DeleteModifier(index);
  return FPValue(true);
}

// move, rotate and scale work in the axes of the current coordinate system; rotate and scale
// turn about each node's own pivot.
ScriptValue MoveNodes(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  if (!call.Arg(1).Is(FPType::TYPE_POINT3)) CannotConvert(call.Arg(1), "Point3");
  const Point3 offset = call.Arg(1).AsPoint3();
  const TimeValue t = call.Time();
  for (INode* node : NodesOf(call.Arg(0))) node->Move(t, CoordSysAxes(node, t), offset);
  return FPValue::Void();
}

ScriptValue RotateNodes(ScriptCall& call) {
  call.ExpectArgs(2, 3);
  Quat q;
  if (call.ArgCount() == 3) {
    if (!call.Arg(2).Is(FPType::TYPE_POINT3)) CannotConvert(call.Arg(2), "Point3");
    q = Quat(AngAxis(call.Arg(2).AsPoint3(), ToFloat(call.Arg(1)) * std::numbers::pi_v<float> / 180.0f));
  } else if (call.Arg(1).Is(FPType::TYPE_QUAT) || call.Arg(1).Is(FPType::TYPE_ANGAXIS)) {
    q = call.Arg(1).Fp().AsQuat();
  } else {
    CannotConvert(call.Arg(1), "Quat");
  }
  const TimeValue t = call.Time();
  for (INode* node : NodesOf(call.Arg(0))) node->Rotate(t, CoordSysAxes(node, t), q, true);
  return FPValue::Void();
}

ScriptValue ScaleNodes(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  if (!call.Arg(1).Is(FPType::TYPE_POINT3)) CannotConvert(call.Arg(1), "Point3");
  const Point3 factors = call.Arg(1).AsPoint3();
  const TimeValue t = call.Time();
  for (INode* node : NodesOf(call.Arg(0))) node->Scale(t, CoordSysAxes(node, t), factors, true);
  return FPValue::Void();
}

// ---------------------------------------------------------------------------------------------
// Locked tracks.

ILockedTrack* LockOf(const ScriptValue& v) {
  Animatable* anim = AnimOf(v);
  auto* lt = anim ? static_cast<ILockedTrack*>(anim->GetInterface(I_LOCKED)) : nullptr;
  if (!lt) Raise("Runtime error: not a lockable track: " + ScriptValueString(v));
  return lt;
}

// Undo of a lock change: the track by handle, its state before and after.
class LockRestore : public RestoreObj {
 public:
  LockRestore(Animatable* anim, bool before)
      : handle_(Animatable::GetHandleByAnim(anim)), before_(before), after_(!before) {}
  void Restore(int) override { Apply(before_); }
  void Redo() override { Apply(after_); }
  MSTR Description() override { return "Lock Track"; }

 private:
  void Apply(bool locked) {
    Animatable* anim = Animatable::GetAnimByHandle(handle_);
    auto* lt = anim ? static_cast<ILockedTrack*>(anim->GetInterface(I_LOCKED)) : nullptr;
    if (lt) lt->SetLocked(locked);
  }
  AnimHandle handle_;
  bool before_;
  bool after_;
};

std::vector<ScriptValue> TrackList(const ScriptValue& v) {
  if (v.IsArray()) return v.Items();
  return {v};
}

ScriptValue SetLocks(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const bool on = ToBool(call.Arg(0), "setLocks");
  std::vector<ILockedTrack*> locks;
  for (const ScriptValue& track : TrackList(call.Arg(1))) locks.push_back(LockOf(track));
  const std::vector<ScriptValue> tracks = TrackList(call.Arg(1));
  for (size_t i = 0; i < locks.size(); ++i) {
    if (locks[i]->GetLocked() == on) continue;
    if (theHold.Holding()) theHold.Put(new LockRestore(AnimOf(tracks[i]), !on));
    locks[i]->SetLocked(on);
  }
  return FPValue::Void();
}

ScriptValue GetLocked(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(LockOf(call.Arg(0))->GetLocked());
}

// ---------------------------------------------------------------------------------------------
// Undo and tool modes.

ScriptValue MaxCommand(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const std::string& command = ToText(call.Arg(0));
  if (Named(command, "undo")) return FPValue(theHold.Undo());
  if (Named(command, "redo")) return FPValue(theHold.Redo());
  Raise("Runtime error: max " + command + " is not supported");
}

ScriptValue HoldBegin(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  theHold.Begin();
  return FPValue::Void();
}

ScriptValue HoldAccept(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  if (theHold.HoldLevel() == 0) Raise("Runtime error: theHold.Accept without theHold.Begin");
  theHold.Accept(ToText(call.Arg(0)));
  return FPValue::Void();
}

ScriptValue HoldCancel(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  if (theHold.HoldLevel() == 0) Raise("Runtime error: theHold.Cancel without theHold.Begin");
  theHold.Cancel();
  return FPValue::Void();
}

ScriptValue ToolModeCoordsys(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  GetCOREInterface()->SetRefCoordSys(FindMode(kRefCoordSys, call.Arg(0), "toolMode.coordsys"));
  return FPValue::Void();
}

ScriptValue GetRefCoordSys(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  return ModeName(kRefCoordSys, GetCOREInterface()->GetRefCoordSys());
}

// ---------------------------------------------------------------------------------------------
// Shapes.

BezierShape* ShapeArg(ScriptCall& call, int i, SplineShape** owner = nullptr) {
  const ScriptValue& v = call.Arg(i);
  Animatable* anim = nullptr;
  if (INode* node = v.AsNode()) {
    Object* obj = node->GetObjectRef();
    anim = obj ? obj->FindBaseObject() : nullptr;
  } else {
    anim = AnimOf(v);
  }
  auto* shape = dynamic_cast<SplineShape*>(anim);
  if (!shape) CannotConvert(v, "SplineShape");
  if (owner) *owner = shape;
  return const_cast<BezierShape*>(&shape->GetShape());
}

Spline3D* SplineArg(ScriptCall& call, BezierShape& shape, int i) {
  const int s = ToInt(call.Arg(i));
  Spline3D* spline = s >= 1 ? shape.GetSpline(s - 1) : nullptr;
  if (!spline) Raise("Runtime error: spline index out of range: " + ScriptValueString(call.Arg(i)));
  return spline;
}

int KnotArg(ScriptCall& call, const Spline3D& spline, int i) {
  const int k = ToInt(call.Arg(i));
  if (k < 1 || k > spline.KnotCount())
    Raise("Runtime error: knot index out of range: " + ScriptValueString(call.Arg(i)));
  return k - 1;
}

// Knot positions read in world space, as the host's script gives them.
Matrix3 ShapeTM(ScriptCall& call, int i) {
  INode* node = call.Arg(i).AsNode();
  return node ? node->GetObjectTM(call.Time()) : Matrix3();
}

ScriptValue NumSplines(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(ShapeArg(call, 0)->SplineCount());
}

ScriptValue NumKnots(ScriptCall& call) {
  call.ExpectArgs(1, 2);
  BezierShape& shape = *ShapeArg(call, 0);
  if (call.ArgCount() == 2) return FPValue(SplineArg(call, shape, 1)->KnotCount());
  int count = 0;
  for (int s = 0; s < shape.SplineCount(); ++s) count += shape.GetSpline(s)->KnotCount();
  return FPValue(count);
}

ScriptValue KnotVector(ScriptCall& call, Point3 (Spline3D::*get)(int) const) {
  call.ExpectArgs(3, 3);
  BezierShape& shape = *ShapeArg(call, 0);
  const Spline3D& spline = *SplineArg(call, shape, 1);
  return FPValue((spline.*get)(KnotArg(call, spline, 2)) * ShapeTM(call, 0));
}

ScriptValue AddNewSpline(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  SplineShape* owner = nullptr;
  BezierShape& shape = *ShapeArg(call, 0, &owner);
  owner->EditShape([](BezierShape& s) { s.NewSpline(); });
  return FPValue(shape.SplineCount());
}

// addKnot shape spline #corner|#smooth|#bezier|#bezierCorner #line|#curve point [in out]
ScriptValue AddKnot(ScriptCall& call) {
  call.ExpectArgs(5, 7);
  SplineShape* owner = nullptr;
  BezierShape& shape = *ShapeArg(call, 0, &owner);
  SplineArg(call, shape, 1);
  const int s = ToInt(call.Arg(1)) - 1;
  static constexpr CoordSysName kKnotTypes[] = {
      {"smooth", KTYPE_AUTO}, {"corner", KTYPE_CORNER}, {"bezier", KTYPE_BEZIER},
      {"bezierCorner", KTYPE_BEZIER_CORNER}};
  static constexpr CoordSysName kLineTypes[] = {{"curve", LTYPE_CURVE}, {"line", LTYPE_LINE}};
  const int ktype = FindMode(kKnotTypes, call.Arg(2), "addKnot");
  const int ltype = FindMode(kLineTypes, call.Arg(3), "addKnot");
  for (int i = 4; i < call.ArgCount(); ++i) {
    if (!call.Arg(i).Is(FPType::TYPE_POINT3)) CannotConvert(call.Arg(i), "Point3");
  }
  // Points come in world space; the shape keeps them in its object space.
  const Matrix3 to_object = Inverse(ShapeTM(call, 0));
  const Point3 p = call.Arg(4).AsPoint3() * to_object;
  const Point3 in = call.ArgCount() > 5 ? call.Arg(5).AsPoint3() * to_object : p;
  const Point3 out = call.ArgCount() > 6 ? call.Arg(6).AsPoint3() * to_object : p;
  owner->EditShape([&](BezierShape& bs) {
    bs.GetSpline(s)->AddKnot(SplineKnot(ktype, ltype, p, in, out));
    bs.GetSpline(s)->ComputeBezPoints();
  });
  return FPValue::Void();
}

ScriptValue UpdateShape(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  ShapeArg(call, 0);
  return FPValue::Void();
}

// ---------------------------------------------------------------------------------------------
// Files and streams.

std::shared_ptr<ScriptStream> NewStream(std::string path, bool writing) {
  auto st = std::make_shared<ScriptStream>();
  st->path = std::move(path);
  st->writing = writing;
  return st;
}

ScriptStream& StreamArg(ScriptCall& call, int i) {
  ScriptStream* st = call.Arg(i).AsStream();
  if (!st) CannotConvert(call.Arg(i), "Stream");
  return *st;
}

ScriptValue DoesFileExist(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  std::error_code ec;
  return FPValue(std::filesystem::exists(ToText(call.Arg(0)), ec));
}

ScriptValue GetFiles(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const std::filesystem::path pattern(ToText(call.Arg(0)));
  std::filesystem::path dir = pattern.parent_path();
  if (dir.empty()) dir = ".";
  const std::string name = pattern.filename().string();
  std::vector<std::string> found;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (it->is_regular_file(ec) && WildcardMatch(it->path().filename().string(), name, true))
      found.push_back((pattern.parent_path() / it->path().filename()).string());
  }
  std::sort(found.begin(), found.end());
  std::vector<ScriptValue> items;
  for (const std::string& f : found) items.emplace_back(FPValue(f));
  return ScriptValue::Array(std::move(items));
}

ScriptValue CreateFile(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  auto st = NewStream(ToText(call.Arg(0)), true);
  // The file exists (empty) from now on, as the host makes it.
  if (!st->Flush()) return ScriptValue();
  return ScriptValue::Stream(std::move(st));
}

ScriptValue OpenFile(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const std::string path = ToText(call.Arg(0));
  std::string mode = "r";
  if (const ScriptValue* m = call.Key("mode")) mode = ToText(*m);
  if (mode != "r" && mode != "w" && mode != "a") {
    Raise("Runtime error: openFile mode: must be \"r\", \"w\" or \"a\", got: " +
          ScriptValueString(*call.Key("mode")));
  }
  auto st = NewStream(path, mode != "r");
  if (mode != "w") {
    std::ifstream in(path, std::ios::binary);
    if (!in) return ScriptValue();
    std::ostringstream text;
    text << in.rdbuf();
    st->text = text.str();
    if (mode == "a") st->flushed = st->text.size();
  }
  if (st->writing && !st->Flush()) return ScriptValue();
  return ScriptValue::Stream(std::move(st));
}

ScriptValue StringStream(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  auto st = NewStream("", true);
  st->text = ToText(call.Arg(0));
  return ScriptValue::Stream(std::move(st));
}

ScriptValue CloseStream(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  ScriptStream& st = StreamArg(call, 0);
  const bool ok = !st.open || st.Flush();
  st.open = false;
  return FPValue(ok);
}

ScriptValue FlushStream(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(StreamArg(call, 0).Flush());
}

ScriptValue ReadLine(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  ScriptStream& st = StreamArg(call, 0);
  if (!st.open) Raise("Runtime error: the stream is closed");
  if (st.read_pos >= st.text.size()) Raise("Runtime error: read past the end of the stream");
  size_t end = st.text.find('\n', st.read_pos);
  if (end == std::string::npos) end = st.text.size();
  std::string line = st.text.substr(st.read_pos, end - st.read_pos);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  st.read_pos = std::min(end + 1, st.text.size());
  return FPValue(line);
}

ScriptValue Eof(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  ScriptStream& st = StreamArg(call, 0);
  return FPValue(st.read_pos >= st.text.size());
}

ScriptValue DeleteFile(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  std::error_code ec;
  return FPValue(std::filesystem::remove(ToText(call.Arg(0)), ec));
}

ScriptValue FilenamePart(ScriptCall& call, int part) {
  call.ExpectArgs(1, 1);
  const std::filesystem::path p(ToText(call.Arg(0)));
  switch (part) {
    case 0: {
      std::string dir = p.parent_path().string();
      return FPValue(dir.empty() ? dir : dir + "/");
    }
    case 1:
      return FPValue(p.stem().string());
    default:
      return FPValue(p.extension().string());
  }
}

struct LibraryFn {
  const char* name;
  ScriptValue (*fn)(ScriptCall&);
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Shared with the evaluator and the property code.

void PushCoordSys(const ScriptValue& v) {
  CoordSys cs;
  if (v.Is(FPType::TYPE_NAME)) {
    const std::string& n = v.AsString();
    if (Named(n, "world") || Named(n, "screen") || Named(n, "grid") || Named(n, "view")) {
      cs.kind = CoordSys::Kind::kWorld;
    } else if (Named(n, "parent")) {
      cs.kind = CoordSys::Kind::kParent;
    } else if (Named(n, "local") || Named(n, "gimbal")) {
      cs.kind = CoordSys::Kind::kLocal;
    } else {
      Raise("Runtime error: in coordsys wants world, parent, local, screen, grid, gimbal, a "
            "node or a matrix, got: " + ScriptValueString(v));
    }
  } else if (INode* node = v.AsNode()) {
    cs.kind = CoordSys::Kind::kNode;
    cs.node = Animatable::GetHandleByAnim(node);
  } else if (v.Is(FPType::TYPE_MATRIX3)) {
    cs.kind = CoordSys::Kind::kMatrix;
    cs.tm = v.Fp().AsMatrix3();
  } else {
    Raise("Runtime error: in coordsys wants world, parent, local, screen, grid, gimbal, a node "
          "or a matrix, got: " + ScriptValueString(v));
  }
  CoordSysStack().push_back(cs);
}

void PopCoordSys() {
  if (!CoordSysStack().empty()) CoordSysStack().pop_back();
}

bool HasCoordSys() {
  return !CoordSysStack().empty() && CoordSysStack().back().kind != CoordSys::Kind::kWorld;
}

Matrix3 CoordSysFrame(INode* node, TimeValue t) {
  if (CoordSysStack().empty()) return Matrix3();
  const CoordSys& cs = CoordSysStack().back();
  switch (cs.kind) {
    case CoordSys::Kind::kWorld:
      return Matrix3();
    case CoordSys::Kind::kParent:
      return node->GetParentTM(t);
    case CoordSys::Kind::kLocal:
      return WithoutScale(node->GetNodeTM(t));
    case CoordSys::Kind::kNode: {
      auto* other = dynamic_cast<INode*>(Animatable::GetAnimByHandle(cs.node));
      if (!other) Raise("Runtime error: the node of in coordsys has been deleted");
      return other->GetNodeTM(t);
    }
    case CoordSys::Kind::kMatrix:
      return cs.tm;
  }
  return Matrix3();
}

Matrix3 CoordSysAxes(INode* node, TimeValue t) { return WithoutScale(CoordSysFrame(node, t)); }

bool NodePartController(const ScriptValue& v, std::string_view name, ScriptValue& out) {
  INode* node = v.AsNode();
  Control* tm = node ? node->GetTMController() : nullptr;
  if (!tm) return false;
  if (Named(name, "pos") || Named(name, "position")) {
    out = ObjectValue(tm->GetPositionController());
  } else if (Named(name, "rotation")) {
    out = ObjectValue(tm->GetRotationController());
  } else if (Named(name, "scale")) {
    out = ObjectValue(tm->GetScaleController());
  } else {
    return false;
  }
  return true;
}

bool GetControllerExtra(Control* c, std::string_view name, ScriptValue& out) {
  if (Named(name, "axisOrder")) {
    auto* euler = static_cast<IEulerControl*>(c->GetInterface(I_EULERCTRL));
    if (!euler) return false;
    out = FPValue(euler->GetOrder() + 1);
    return true;
  }
  auto* list = static_cast<IListControl*>(c->GetInterface(LIST_CONTROLLER_INTERFACE));
  if (!list) return false;
  if (Named(name, "count")) {
    out = FPValue(list->GetListCount());
  } else if (Named(name, "active")) {
    out = FPValue(list->GetActive() + 1);
  } else if (Named(name, "available")) {
    // The empty slot after the items and their weight tracks: assigning its controller appends.
    out = ScriptValue::SubAnim(c, 2 * list->GetListCount());
  } else if (Named(name, "weight")) {
    std::vector<ScriptValue> weights;
    for (int i = 0; i < list->GetListCount(); ++i)
      weights.emplace_back(FPValue(list->GetSubCtrlWeight(i, 0) * 100.0f));
    out = ScriptValue::Array(std::move(weights));
  } else {
    return false;
  }
  return true;
}

bool SetControllerExtra(Control* c, std::string_view name, const ScriptValue& v) {
  if (Named(name, "axisOrder")) {
    auto* euler = static_cast<IEulerControl*>(c->GetInterface(I_EULERCTRL));
    if (!euler) return false;
    const int order = ToInt(v);
    if (order < 1 || order > 9)
      Raise("Runtime error: axisOrder must be 1 to 9, got: " + ScriptValueString(v));
    euler->SetOrder(order - 1);
    return true;
  }
  auto* list = static_cast<IListControl*>(c->GetInterface(LIST_CONTROLLER_INTERFACE));
  if (!list) return false;
  if (Named(name, "active")) {
    const int i = ToInt(v);
    if (i < 1 || i > list->GetListCount())
      Raise("Runtime error: list index out of range: " + ScriptValueString(v));
    list->SetActive(i - 1);
    return true;
  }
  if (Named(name, "count") || Named(name, "available")) {
    Raise("Cannot set read-only property: " + std::string(name));
  }
  if (Named(name, "weight")) {
    if (!v.IsArray() || v.Count() != list->GetListCount())
      Raise("Runtime error: weight wants an array of " + std::to_string(list->GetListCount()) +
            " numbers, got: " + ScriptValueString(v));
    for (int i = 0; i < v.Count(); ++i)
      list->SetSubCtrlWeight(i, ToFloat(v.Items()[static_cast<size_t>(i)]) / 100.0f);
    return true;
  }
  return false;
}

bool CallListMethod(const ScriptValue& obj,
                    std::string_view name,
                    std::span<const ScriptValue> args,
                    ScriptValue& out) {
  Animatable* anim = AnimOf(obj);
  auto* list =
      anim ? static_cast<IListControl*>(anim->GetInterface(LIST_CONTROLLER_INTERFACE)) : nullptr;
  if (!list) return false;
  auto expect = [&](int n) {
    if (static_cast<int>(args.size()) != n)
      throw ArgCountError(std::string(name), n, static_cast<int>(args.size()));
  };
  auto index = [&](const ScriptValue& v) {
    const int i = ToInt(v);
    if (i < 1 || i > list->GetListCount())
      Raise("Runtime error: list index out of range: " + ScriptValueString(v));
    return i - 1;
  };
  if (Named(name, "getName")) {
    expect(1);
    out = FPValue(list->GetName(index(args[0])));
  } else if (Named(name, "setName")) {
    expect(2);
    list->SetName(index(args[0]), ToText(args[1]));
    out = FPValue::Void();
  } else if (Named(name, "setActive")) {
    expect(1);
    list->SetActive(index(args[0]));
    out = FPValue::Void();
  } else if (Named(name, "getActive")) {
    expect(0);
    out = FPValue(list->GetActive() + 1);
  } else if (Named(name, "getCount") || Named(name, "count")) {
    expect(0);
    out = FPValue(list->GetListCount());
  } else if (Named(name, "delete")) {
    expect(1);
    list->DeleteItem(index(args[0]));
    out = FPValue::Void();
  } else {
    return false;
  }
  return true;
}

void RegisterLibraryGlobals() {
  static constexpr LibraryFn kFunctions[] = {
      {"isDeleted", IsDeleted},
      {"hide", [](ScriptCall& c) { return HideNodes(c, true); }},
      {"unhide", [](ScriptCall& c) { return HideNodes(c, false); }},
      {"addModifier", AddModifier},
      {"deleteModifier", DeleteModifier},
      {"move", MoveNodes},
      {"rotate", RotateNodes},
      {"scale", ScaleNodes},
      {"LockedTracksMan.setLocks", SetLocks},
      {"LockedTracksMan.getLocked", GetLocked},
      {"max", MaxCommand},
      {"theHold.Begin", HoldBegin},
      {"theHold.Accept", HoldAccept},
      {"theHold.Cancel", HoldCancel},
      {"theHold.Holding",
       [](ScriptCall& c) {
         c.ExpectArgs(0, 0);
         return ScriptValue(FPValue(theHold.Holding()));
       }},
      {"toolMode.coordsys", ToolModeCoordsys},
      {"getRefCoordSys", GetRefCoordSys},
      {"numSplines", NumSplines},
      {"numKnots", NumKnots},
      {"getKnotPoint", [](ScriptCall& c) { return KnotVector(c, &Spline3D::GetKnotPoint); }},
      {"getInVec", [](ScriptCall& c) { return KnotVector(c, &Spline3D::GetInVec); }},
      {"getOutVec", [](ScriptCall& c) { return KnotVector(c, &Spline3D::GetOutVec); }},
      {"addNewSpline", AddNewSpline},
      {"addKnot", AddKnot},
      {"updateShape", UpdateShape},
      {"doesFileExist", DoesFileExist},
      {"getFiles", GetFiles},
      {"createFile", CreateFile},
      {"openFile", OpenFile},
      {"stringStream", StringStream},
      {"close", CloseStream},
      {"flush", FlushStream},
      {"readLine", ReadLine},
      {"eof", Eof},
      {"deleteFile", DeleteFile},
      {"getFilenamePath", [](ScriptCall& c) { return FilenamePart(c, 0); }},
      {"getFilenameFile", [](ScriptCall& c) { return FilenamePart(c, 1); }},
      {"getFilenameType", [](ScriptCall& c) { return FilenamePart(c, 2); }},
  };
  for (const LibraryFn& f : kFunctions) RegisterScriptGlobal(f.name, f.fn);
  RegisterScriptGlobalVariable(
      "maxOps.pivotMode",
      [](ScriptRunner&) { return ModeName(kPivotModes, GetCOREInterface()->GetPivotMode()); },
      [](ScriptRunner&, const ScriptValue& v) {
        GetCOREInterface()->SetPivotMode(FindMode(kPivotModes, v, "maxOps.pivotMode"));
      });
}

bool WildcardMatch(std::string_view s, std::string_view p, bool ignore_case) {
  auto same = [ignore_case](char a, char b) {
    if (!ignore_case) return a == b;
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
  };
  // Iterative, with one backtrack point at the last star.
  size_t si = 0, pi = 0, star = std::string_view::npos, mark = 0;
  while (si < s.size()) {
    if (pi < p.size() && (p[pi] == '?' || same(p[pi], s[si]))) {
      ++si;
      ++pi;
    } else if (pi < p.size() && p[pi] == '*') {
      star = pi++;
      mark = si;
    } else if (star != std::string_view::npos) {
      pi = star + 1;
      si = ++mark;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == '*') ++pi;
  return pi == p.size();
}

}  // namespace script_internal
