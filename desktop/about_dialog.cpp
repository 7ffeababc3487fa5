#include "desktop/about_dialog.h"

#include "desktop/toolkit.h"

namespace veltrane::desktop {

namespace {

GtkWidget* Field(GtkWidget* box, const char* id, const char* text) {
  GtkWidget* label = gtk_label_new(text);
  gtk_widget_set_name(label, id);
  gtk_label_set_xalign(GTK_LABEL(label), 0.0f);
  gtk_label_set_selectable(GTK_LABEL(label), TRUE);
  gtk_box_pack_start(GTK_BOX(box), label, FALSE, FALSE, 0);
  return label;
}

void Quit(ModalLoop* loop) { loop->Quit(); }

}  // namespace

void RunAboutDialog(const VeltraneAboutBox& about) {
  GtkWidget* dialog = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(dialog), about.title);
  gtk_window_set_type_hint(GTK_WINDOW(dialog), GDK_WINDOW_TYPE_HINT_DIALOG);
  gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
  gtk_window_set_position(GTK_WINDOW(dialog), GTK_WIN_POS_CENTER_ON_PARENT);
  // 287 by 134 dialog units of an 8-point font.
  gtk_window_set_default_size(GTK_WINDOW(dialog), 430, 218);

  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
  gtk_container_set_border_width(GTK_CONTAINER(box), 12);
  gtk_container_add(GTK_CONTAINER(dialog), box);
  GtkWidget* name = Field(box, "209", about.productName);
  gtk_widget_set_margin_top(name, 12);
  Field(box, "211", about.copyright);
  Field(box, "212", about.webAddress);
  GtkWidget* version = Field(box, "210", about.version);
  gtk_widget_set_margin_top(version, 10);

  GtkWidget* ok = gtk_button_new_with_label("OK");
  gtk_widget_set_name(ok, "1");
  gtk_widget_set_halign(ok, GTK_ALIGN_CENTER);
  gtk_widget_set_valign(ok, GTK_ALIGN_END);
  gtk_widget_set_size_request(ok, 75, -1);
  gtk_box_pack_end(GTK_BOX(box), ok, TRUE, TRUE, 0);
  gtk_widget_set_can_default(ok, TRUE);
  gtk_window_set_default(GTK_WINDOW(dialog), ok);

  ModalLoop loop(dialog);
  g_signal_connect_swapped(ok, "clicked", G_CALLBACK(Quit), &loop);
  g_signal_connect_swapped(dialog, "delete-event", G_CALLBACK(+[](ModalLoop* l) -> gboolean {
                             l->Quit();
                             return TRUE;
                           }),
                           &loop);
  gtk_widget_grab_focus(ok);
  loop.Run();
}

}  // namespace veltrane::desktop
