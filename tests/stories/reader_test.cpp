#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "stories/story.h"

// How the text of a file becomes stories.

namespace stories {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// The steps of one story.
std::vector<Step> steps_of(const std::string& lines) {
  return read_stories("story one\n" + lines, "file").front().steps;
}

Step step_of(const std::string& line) { return steps_of(line).front(); }

/// Why the file cannot be read.
std::string refusal_of(const std::string& text) {
  try {
    read_stories(text, "file");
  } catch (const BadStory& bad) {
    return bad.what();
  }
  return "it is read";
}

std::string refused_line(const std::string& line) { return refusal_of("story one\n" + line); }

/// "11=a1|!41", as the fields are read.
std::string text_of(const std::vector<FieldWords>& fields) {
  std::string text;
  for (const FieldWords& field : fields) {
    if (!text.empty()) text += '|';
    text += field.absent ? "!" + std::to_string(field.tag)
                         : std::to_string(field.tag) + "=" + field.value;
  }
  return text;
}

TEST(Reader, names_stories_for_their_file) {
  const std::vector<Story> stories =
      read_stories("# a comment\n\nstory one\n  after 1s\n\nstory two\nafter 2ms\n", "file");
  ASSERT_EQ(stories.size(), 2U);
  EXPECT_EQ(stories[0].name, "file/one");
  EXPECT_EQ(stories[0].steps.front().line, 4U);
  EXPECT_EQ(stories[0].steps.front().ms, 1000U);
  EXPECT_EQ(stories[1].name, "file/two");
  EXPECT_EQ(stories[1].steps.front().ms, 2U);
}

TEST(Reader, settings_ahead_of_the_stories_are_for_all_and_others_for_one) {
  const std::vector<Story> stories = read_stories(
      "options --symbols A:1\nscript reject_every=2\n"
      "story one\noptions --seed 7\nbook opening\ninside only: it takes long\nafter 1s\n"
      "story two\nscript lapse_ms=1\nafter 1s\n",
      "file");
  EXPECT_THAT(stories[0].options, ElementsAre("--symbols", "A:1", "--seed", "7"));
  EXPECT_EQ(stories[0].script, "reject_every=2");
  EXPECT_FALSE(stories[0].begins_empty);
  EXPECT_EQ(stories[0].inside_only, "it takes long");
  EXPECT_THAT(stories[1].options, ElementsAre("--symbols", "A:1"));
  EXPECT_EQ(stories[1].script, "lapse_ms=1");
  EXPECT_TRUE(stories[1].begins_empty);
  EXPECT_EQ(stories[1].inside_only, "");
}

TEST(Reader, a_message_has_a_type_and_fields) {
  const Step sent = step_of("ALPHA   >  D   11=a1|58=two words|18=|!34");
  EXPECT_EQ(sent.kind, Kind::SEND);
  EXPECT_EQ(sent.connection, "ALPHA");
  EXPECT_EQ(sent.words, "D");
  EXPECT_EQ(refused_line("ALPHA > D 11=a1||38=1"), "file.story:2: \"\" is no field");
  EXPECT_EQ(text_of(sent.fields), "11=a1|58=two words|18=|!34");
  const Step heard = step_of("ALPHA#2 < 8");
  EXPECT_EQ(heard.kind, Kind::HEAR);
  EXPECT_EQ(heard.connection, "ALPHA#2");
  EXPECT_THAT(heard.fields, IsEmpty());
  EXPECT_EQ(comp_id_of(heard.connection), "ALPHA");
}

TEST(Reader, a_later_mention_of_a_field_takes_the_place_of_an_earlier) {
  const std::vector<Story> stories = read_stories(
      "let sell 54=2|38=100|18=i\n"
      "story one\nlet big &sell|38=900\nALPHA > D 11=a1|&big|!18|54=1\n"
      "story two\nALPHA > D &sell\n",
      "file");
  EXPECT_EQ(text_of(stories[0].steps.front().fields), "11=a1|54=1|38=900|!18");
  EXPECT_EQ(text_of(stories[1].steps.front().fields), "54=2|38=100|18=i");
}

TEST(Reader, who_does_not_connect_first_has_logged_on) {
  const Story story = read_stories(
      "story one\nBETA > 0\nALPHA connects\nALPHA > A 108=1\nGAMMA < 8\nBETA > 0\n", "file")[0];
  EXPECT_THAT(story.logged_on, ElementsAre("BETA", "GAMMA"));
}

TEST(Reader, a_client_comes_and_goes) {
  EXPECT_EQ(step_of("ALPHA connects").kind, Kind::CONNECT);
  EXPECT_EQ(step_of("ALPHA disconnects").kind, Kind::DISCONNECT);
  EXPECT_EQ(step_of("ALPHA resets").kind, Kind::RESET);
  EXPECT_EQ(step_of("ALPHA closed").kind, Kind::CLOSED);
  const Step rests = step_of("ALPHA rests 11=a1|37=$id");
  EXPECT_EQ(rests.kind, Kind::REST);
  EXPECT_EQ(text_of(rests.fields), "11=a1|37=$id");
  const Step raw = step_of("ALPHA >> 8=FIX.4.2|9=x");
  EXPECT_EQ(raw.kind, Kind::RAW);
  EXPECT_EQ(raw.words, "8=FIX.4.2|9=x");
}

TEST(Reader, a_command_is_echoed_unless_another_reply_is_named) {
  EXPECT_EQ(step_of("control drop 2").words, "drop 2");
  EXPECT_EQ(step_of("control drop 2").reply, "ok drop 2");
  EXPECT_EQ(step_of("control dance -> err unknown").words, "dance");
  EXPECT_EQ(step_of("control dance -> err unknown").reply, "err unknown");
}

TEST(Reader, what_must_come) {
  EXPECT_EQ(step_of("feed T 1 @ 2.00; 5 0 @ 2.00 last").words, "T 1 @ 2.00; 5 0 @ 2.00 last");
  EXPECT_EQ(step_of("log  bench: hello  there").words, "bench: hello  there");
  EXPECT_THAT(step_of("counts orders+1 fills+20").rises,
              ElementsAre(Pair("fills", 20), Pair("orders", 1)));
  EXPECT_THAT(step_of("counts").rises, IsEmpty());
  EXPECT_FALSE(read_stories("story one\nlog x", "file")[0].names_events);
  EXPECT_TRUE(read_stories("story one\nevent new a1", "file")[0].names_events);
}

TEST(Reader, a_plus_joins_acts_to_one_turn) {
  const std::vector<Step> steps = steps_of("ALPHA > 0\n+ BETA > 0\n+ control drop\n");
  EXPECT_FALSE(steps[0].same_turn);
  EXPECT_TRUE(steps[1].same_turn);
  EXPECT_EQ(steps[1].connection, "BETA");
  EXPECT_TRUE(steps[2].same_turn);
  for (const char* wrong : {"+ ALPHA > 0", "log x\n+ ALPHA > 0", "ALPHA > 0\n+ ALPHA < 8"}) {
    EXPECT_THAT(refused_line(wrong), HasSubstr("joins what is done")) << wrong;
  }
}

TEST(Reader, refuses_what_it_does_not_know) {
  EXPECT_EQ(refusal_of("ALPHA > 0"), "file.story:1: stands ahead of the first story");
  EXPECT_EQ(refusal_of("# nothing"), "file.story:1: no story");
  EXPECT_EQ(refusal_of("story one\nstory two\nafter 1s"), "file.story:2: file/one tells nothing");
  EXPECT_EQ(refusal_of("story one\nafter 1s\nstory one\nafter 1s"),
            "file.story:3: a second story of that name");
  EXPECT_THAT(refusal_of("story One\nafter 1s"), HasSubstr("small letters"));
  EXPECT_THAT(refusal_of("story\nafter 1s"), HasSubstr("small letters"));
  EXPECT_EQ(refused_line("alpha > D"), "file.story:2: \"alpha\" is no word of a story");
  EXPECT_THAT(refused_line("ALPHA says D"), HasSubstr("a client does"));
  EXPECT_THAT(refused_line("ALPHA connects twice"), HasSubstr("a client does"));
  EXPECT_THAT(refused_line("ALPHA >"), HasSubstr("no MsgType"));
  EXPECT_THAT(refused_line("ALPHA > D eleven=a1"), HasSubstr("is no field"));
  EXPECT_THAT(refused_line("ALPHA > D 11"), HasSubstr("is no field"));
  EXPECT_THAT(refused_line("ALPHA > D &sell"), HasSubstr("nothing is let sell"));
  EXPECT_THAT(refused_line("let 11=a1"), HasSubstr("no name"));
  EXPECT_THAT(refused_line("after a while"), HasSubstr("\"2s\""));
  EXPECT_THAT(refused_line("after 2"), HasSubstr("\"2s\""));
  EXPECT_THAT(refused_line("counts orders"), HasSubstr("a counter rises"));
  EXPECT_THAT(refused_line("counts orders+0"), HasSubstr("a counter rises"));
  EXPECT_THAT(refused_line("counts orders+1 orders+1"), HasSubstr("rises once"));
  EXPECT_THAT(refused_line("book full"), HasSubstr("empty, or \"opening\""));
  EXPECT_THAT(refused_line("inside"), HasSubstr("the reason"));
  EXPECT_THAT(refused_line("after 1s\nscript x=1"), HasSubstr("behind the first step"));
}

}  // namespace
}  // namespace stories
