#include "transfer/import_apply.h"

#include <map>
#include <mutex>

#include "base/text.h"
#include "data/password_mode.h"
#include "data/schema.h"
#include "dispatch/write_frame.h"
#include "org/tree_change.h"
#include "transfer/import_mail.h"

namespace orvane::transfer {
namespace {

// Every code carries its trail; a close that fails after another failure
// stands behind it.
constexpr WriteRules kImportRules = {
    .close_failure = WriteRules::CloseFailure::kAfter, .frame_trail = true, .step_trail = true, .rollback_failure = {}};

std::mutex import_running;

}  // namespace

void PrepareImportContext(RequestContext& ctx) {
  ctx.menu_list = std::string(data::kMenuCodeList);
  ctx.menu_codes = text::Split(ctx.menu_list, ",");
  ctx.menu_upper = static_cast<int>(ctx.menu_codes.size()) - 1;
}

void ApplyImport(RequestContext& ctx, const std::vector<ImportFile>& files, const ImportOptions& options,
                 ImportPlan& plan, ImportReport& report, const Progress& progress) {
  report = ImportReport{};
  auto refuse = [&report](std::string why) { report.refusal = std::move(why) + "; nothing was applied"; };
  std::unique_lock<std::mutex> running(import_running, std::try_to_lock);
  if (!running.owns_lock()) {
    refuse("another import is running; try again when it has finished");
    return;
  }
  constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";
  // The whole import is one history entry: every row it writes is one line
  // of it, so it reads (and is undone) as one change.
  ctx.history.code = "import";
  std::string names;
  for (const ImportFile& f : files) names += (names.empty() ? "" : " ") + f.name;
  ctx.fields.Add("files", names);
  WriteFrame frame(ctx, kImportRules);
  std::vector<std::string> keys;
  MailSide mail;
  if (!frame.Start({{"JNJI_MODE", kNoConfig}, {"LOCAL_DB_DSN", kNoConfig}}, keys) || !ReadMailSide(ctx, mail)) {
    refuse(ctx.response());
    return;
  }
  // Everything the plan reads decides what is written: it is read again
  // inside the transaction, with the user and section tables held (in the
  // order the membership add holds them).
  if (!frame.Open() || !frame.Begin({ctx.USR_MST, ctx.SEC_MST})) {
    refuse(ctx.response());
    return;
  }
  Organisation current;
  if (Status s = ReadOrganisation(frame.conn(), current); frame.Failed(s)) {
    frame.Fail("ERROR:IMPORT", s);
    refuse(ctx.response());
    return;
  }
  PlanImport(current, files, options, plan);
  if (!plan.CanApply()) {
    frame.Fail("ERROR:IMPORT");
    const int errors = plan.Count(Action::kError);
    refuse(std::to_string(errors) + (errors == 1 ? " line errs" : " lines err"));
    return;
  }
  data::PasswordMode passwords = data::PasswordMode::kPlain;
  if (Status s = data::ReadPasswordMode(frame.conn(), passwords); frame.Failed(s)) {
    frame.Fail("ERROR:IMPORT", s);
    refuse(ctx.response());
    return;
  }
  if (std::string failure; !ApplyLines(ctx, frame, plan, keys[0], passwords, report, progress, failure)) {
    report.lines.clear();
    refuse(failure);
    return;
  }
  // The tree's version moves with the commit, so every instance draws it again.
  bool tree_changed = false;
  for (const PlanLine& l : plan.lines)
    tree_changed = tree_changed || (l.kind == FileKind::kSections && l.action != Action::kUnchanged);
  if (!(tree_changed ? org::CommitTreeChange(ctx, frame) : frame.Commit())) {
    report.lines.clear();
    refuse("the commit failed: " + ctx.response());
    return;
  }
  report.applied = true;
  SendImportMail(ctx, frame.conn(), mail, plan, current, frame.stamp().ymd, report);
  if (tree_changed) {
    DiscardedWrites discarded(ctx);  // the report is the answer
    org::FinishTreeChange(ctx, frame);
  } else {
    frame.Finish();
  }
}

}  // namespace orvane::transfer
