// The logical unit of work: BAPI_TRANSACTION_COMMIT, BAPI_TRANSACTION_ROLLBACK, and the test BAPI
// Z_VSIM_NOTE_CREATE whose notes only Z_VSIM_NOTE_GETLIST shows once committed.
#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

void installLuwModules(System& s) {
  ModuleBuilder(s, "BAPI_TRANSACTION_COMMIT", "BAPT", "Execute external Commit when using BAPIs")
      .imp("WAIT", "BAPITA-WAIT", true, {}, "Use of command 'COMMIT AND WAIT'")
      .exp("RETURN", "BAPIRET2", "Confirmations")
      .install([](CallContext& ctx) { ctx.session().commitWork(); });

  ModuleBuilder(s, "BAPI_TRANSACTION_ROLLBACK", "BAPT", "Execute external Rollback when using BAPIs")
      .exp("RETURN", "BAPIRET2", "Confirmations")
      .install([](CallContext& ctx) { ctx.session().rollbackWork(); });

  ModuleBuilder(s, "Z_VSIM_NOTE_CREATE", "ZVSIM", "Creates a note; it is saved with BAPI_TRANSACTION_COMMIT")
      .imp("KEY", "C40", false, {}, "What the note is about")
      .imp("TEXT", "C80", false, {}, "Text of the note")
      .exp("NOTE_NO", "I", "Number of the new note")
      .exp("RETURN", "BAPIRET2", "Return message")
      .install([](CallContext& ctx) {
        const std::string key = ctx.text("KEY");
        const std::string text = ctx.text("TEXT");
        if (text.empty()) {
          ctx.setReturn({"ZVSIM", "E", "010", "A note needs a text", {}});
          return;
        }
        // The number is drawn at once, as from a number range; the note itself waits for the commit.
        System& system = ctx.system();
        const std::int64_t number = system.count("note:" + key, 1);
        System::Note note{number, text, ctx.logon().user};
        ctx.session().registerUpdate([&system, key, note] { system.addNote(key, note); });
        ctx["NOTE_NO"] = Value(number);
        const std::string shown = std::to_string(number);
        ctx.setReturn(
            {"ZVSIM", "S", "011", messageText("Note & created for &", {shown, key, "", ""}), {shown, key, "", ""}});
      });

  ModuleBuilder(s, "Z_VSIM_NOTE_GETLIST", "ZVSIM", "The committed notes of a key")
      .imp("KEY", "C40", false, {}, "What the notes are about")
      .tab("NOTES", "ZVSIM_NOTE", true, "Notes in the order they were committed")
      .install([](CallContext& ctx) {
        auto& rows = ctx.rows("NOTES");
        rows.clear();
        for (const System::Note& n : ctx.system().notes(ctx.text("KEY"))) {
          Value& row = ctx.appendRow("NOTES");
          row["NOTE_NO"] = Value(n.number);
          row["TEXT"] = Value(n.text);
          row["CREATED_BY"] = Value(n.user);
        }
      });
}

}  // namespace vsim
