#include "kelvara/dynamics/standard_parameters.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

#include <kdl/chain.hpp>
#include <kdl/rigidbodyinertia.hpp>

namespace kelvara::dynamics {
namespace {

constexpr std::size_t kLinks = 6;
constexpr std::size_t kParametersOfLink = 10;
constexpr const char* kPayloadSegment = "payload";

bool is_revolute(const KDL::Joint& joint) {
  return joint.getType() == KDL::Joint::RotAxis || joint.getType() == KDL::Joint::RotX ||
         joint.getType() == KDL::Joint::RotY || joint.getType() == KDL::Joint::RotZ;
}

bool has_six_revolute_joints(const KDL::Chain& chain) {
  const auto moving = [](const KDL::Segment& segment) { return is_revolute(segment.getJoint()); };
  return chain.getNrOfJoints() == kLinks &&
         std::count_if(chain.segments.begin(), chain.segments.end(), moving) == kLinks;
}

void write_parameters(const KDL::RigidBodyInertia& inertia, double* out) {
  const KDL::Vector first_moment = inertia.getMass() * inertia.getCOG();
  const KDL::RotationalInertia tensor = inertia.getRotationalInertia();  // about the origin
  const std::array<double, kParametersOfLink> values{
      inertia.getMass(), first_moment.x(), first_moment.y(), first_moment.z(), tensor.data[0],
      tensor.data[1],    tensor.data[2],   tensor.data[4],   tensor.data[5],   tensor.data[8]};
  std::copy(values.begin(), values.end(), out);
}

StandardParameters parameters_without_segment(const KDL::Chain& chain,
                                              const std::string& left_out) {
  if (!has_six_revolute_joints(chain)) {
    throw std::invalid_argument("standard_parameters: the chain must have 6 revolute joints");
  }
  std::array<KDL::RigidBodyInertia, kLinks> links;
  std::size_t moved = 0;      // joints passed so far
  KDL::Frame T_link_segment;  // of the segment in the frame of the link that it is fixed to
  for (const KDL::Segment& segment : chain.segments) {
    if (is_revolute(segment.getJoint())) {
      T_link_segment = KDL::Frame::Identity();
      ++moved;
    } else {
      T_link_segment = T_link_segment * segment.pose(0.0);
    }
    if (moved > 0 && segment.getName() != left_out) {
      links.at(moved - 1) = links.at(moved - 1) + T_link_segment * segment.getInertia();
    }
  }
  StandardParameters parameters{};
  for (std::size_t i = 0; i < kLinks; ++i) {
    write_parameters(links[i], parameters.data() + i * kParametersOfLink);
  }
  return parameters;
}

}  // namespace

StandardParameters standard_parameters(const KDL::Chain& chain) {
  return parameters_without_segment(chain, "");
}

StandardParameters standard_parameters_without_payload(const KDL::Chain& chain) {
  return parameters_without_segment(chain, kPayloadSegment);
}

}  // namespace kelvara::dynamics
