// Thousands of random appends against a model of the ring: where each record goes, which ones
// the freeing rules drop, and where head and tail end up, checked after every append.
#include <map>
#include <random>

#include "log/log_support.h"

namespace kova::test {
namespace {

// The ring as offsets only: every record ever written (and the end markers) by position, and
// the two ends. Overwritten records disappear from the map.
class RingModel {
  public:
    explicit RingModel(uint32_t max) : max_(max) {}

    bool append(int seq, uint32_t length) {
        if (length > max_ - 16 - 2) return false;
        if (tail_ >= head_) {
            if (static_cast<int64_t>(max_) - tail_ - 2 >= static_cast<int64_t>(length)) {
                put(tail_, length, seq);
                tail_ += length;
                return true;
            }
            put(tail_, 2, kMarker);
            uint32_t dropped = 0;
            while (dropped <= length) {
                const int n = length_at(head_);
                if (n <= 0) return false;
                head_ += n;
                dropped += n;
            }
            put(16, length, seq);
            tail_ = 16 + length;
            return true;
        }
        bool turned = false;
        while (static_cast<int64_t>(head_) - static_cast<int64_t>(tail_) <=
               static_cast<int64_t>(length)) {
            const int n = length_at(head_);
            if (n > 0) {
                head_ += n;
                continue;
            }
            if (turned) return false;
            turned = true;
            head_ = 16;
            if (static_cast<int64_t>(max_) - tail_ - 2 >= static_cast<int64_t>(length)) break;
            put(tail_, 2, kMarker);
            tail_ = 16;
        }
        put(tail_, length, seq);
        tail_ += length;
        return true;
    }

    // The sequence numbers of the live records, oldest first.
    std::vector<int> live() const {
        std::vector<int> out;
        uint32_t pos = head_;
        if (head_ > tail_) {
            for (int n; (n = length_at(pos)) > 0; pos += n)
                out.push_back(at_.at(pos).seq);
            pos = 16;
        }
        for (; pos < tail_; pos += at_.at(pos).length)
            out.push_back(at_.at(pos).seq);
        return out;
    }
    uint32_t head() const { return head_; }
    uint32_t tail() const { return tail_; }

  private:
    static constexpr int kMarker = -1;
    struct Entry {
        uint32_t length;
        int seq;
    };
    // What a reader finds at pos: a record's length, 0 for a marker, -1 for anything else.
    int length_at(uint32_t pos) const {
        const auto it = at_.find(pos);
        if (it == at_.end()) return -1;
        return it->second.seq == kMarker ? 0 : static_cast<int>(it->second.length);
    }
    void put(uint32_t pos, uint32_t length, int seq) {
        // Everything the new bytes overlap is gone.
        auto it = at_.lower_bound(pos);
        if (it != at_.begin() && std::prev(it)->first + std::prev(it)->second.length > pos) --it;
        while (it != at_.end() && it->first < pos + length)
            it = at_.erase(it);
        at_[pos] = {length, seq};
    }

    uint32_t max_;
    uint32_t head_ = 16, tail_ = 16;
    std::map<uint32_t, Entry> at_;
};

using RingModelTest = LogTest;

TEST_F(RingModelTest, RandomAppendsMatchTheModel) {
    write_file(path("/usr/kova/kovasdk/texts/tst/events"), "[11100000]\n11100001=e @1\n");
    const NoSync fast;
    for (const uint32_t max : {1024u, 4096u, 65536u}) {
        SCOPED_TRACE(max);
        glogsizeMax = static_cast<int>(max);
        const std::string file = log_path(("/var/log/model" + std::to_string(max)).c_str());
        RingModel model(max);
        std::mt19937 random(max);
        const int appends = max == 65536u ? 1500 : 2500;
        for (int seq = 0; seq < appends; ++seq) {
            // Mostly small records, now and then one close to the ring's size.
            const size_t pad = random() % 8 == 0 ? random() % (max / 2) : random() % 120;
            const std::string arg = std::to_string(seq) + "." + std::string(pad, 'x');
            const uint32_t length = 24 + 1 + 5 + static_cast<uint32_t>(arg.size());
            const bool stored =
                KOVALogSet1a(file.c_str(), 1, 0x11100001, arg.c_str(), "", "", "") == 0;
            ASSERT_EQ(stored, model.append(seq, length)) << seq;
            const LogImage log = image(file);
            ASSERT_TRUE(log.whole) << seq;
            ASSERT_EQ(log.head, model.head()) << seq;
            ASSERT_EQ(log.tail, model.tail()) << seq;
            std::vector<int> seqs;
            for (const EventRecord &r : log.records)
                seqs.push_back(std::stoi(r.args[0]));
            ASSERT_EQ(seqs, model.live()) << seq;
            if (seq % 97 == 0 && !seqs.empty()) {
                const std::string text = render(file, "tst");
                EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')),
                          seqs.size());
                const size_t last = text.rfind('\t');
                ASSERT_NE(last, std::string::npos);
                EXPECT_EQ(text.substr(last + 1, text.find('.', last) - last - 1),
                          "e " + std::to_string(seqs.back()));
            }
        }
    }
}

}  // namespace
}  // namespace kova::test
