// An empty widget of a fixed size, for indentation.
#ifndef OST_LUI_SPACER_H
#define OST_LUI_SPACER_H

#include <gtkmm/widget.h>

namespace lui {

class Spacer : public Gtk::Widget {
 public:
  // Both in pixels.
  Spacer(int widthRequest, int heightRequest);
  ~Spacer() override;

  void SetWidth(int widthRequest);
  void SetHeight(int heightRequest);

 protected:
  void on_size_request(Gtk::Requisition *requisition) override;

 private:
  int width;
  int height;
};

}  // namespace lui

#endif
