#include "Fwk/Publisher.h"

#include <algorithm>

#include "Fwk/Entity.h"

namespace Fwk {

Publisher::~Publisher() {
   delete observers_;
}

void Publisher::observerIs(Observer* o) {
   if (!observers_) {
      observers_ = new std::vector<Observer*>();
   }
   if (std::find(observers_->begin(), observers_->end(), o) == observers_->end()) {
      observers_->push_back(o);
   }
}

void Publisher::observerDel(Observer* o) {
   if (!observers_) {
      return;
   }
   std::erase(*observers_, o);
   if (observers_->empty()) {
      delete observers_;
      observers_ = nullptr;
   }
}

void Publisher::publish(const Change& change) const {
   if (!observers_) {
      return;
   }
   // An observer may unregister while being told; walk a copy.
   const std::vector<Observer*> observers = *observers_;
   for (Observer* o : observers) {
      o->onChange(change);
   }
}

RecordingObserver::RecordingObserver(const Entity& entity) : entity_(&entity) {
   entity_->publisher().observerIs(this);
}

RecordingObserver::~RecordingObserver() {
   entity_->publisher().observerDel(this);
}

void RecordingObserver::onChange(const Change& change) {
   std::string line(change.attribute);
   if (change.key.type) {
      line += "[" + change.keyText() + "]";
   }
   if (change.previous) {
      line += " was " + *change.previous;
   }
   changes_.push_back(std::move(line));
}

}  // namespace Fwk
