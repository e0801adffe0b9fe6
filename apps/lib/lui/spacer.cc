#include "spacer.h"

namespace lui {

Spacer::Spacer(int widthRequest, int heightRequest)
    : Glib::ObjectBase("lui_Spacer"), width(widthRequest), height(heightRequest) {
  set_flags(Gtk::NO_WINDOW);
}

Spacer::~Spacer() = default;

void Spacer::SetWidth(int widthRequest) {
  width = widthRequest;
  queue_resize();
}

void Spacer::SetHeight(int heightRequest) {
  height = heightRequest;
  queue_resize();
}

void Spacer::on_size_request(Gtk::Requisition *requisition) {
  requisition->width = width;
  requisition->height = height;
}

}  // namespace lui
